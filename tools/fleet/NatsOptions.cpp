#include "tools/fleet/NatsOptions.h"

#include "tools/shared/CommandLine.h"

namespace Tools {

void addNatsOptions(Command const& command, NatsOptions& options, std::string const& urlOption,
                    std::string const& prefix) {
   command
         .option(urlOption, options.urls,
                 "A server of the NATS cluster, such as nats://127.0.0.1:4222, which is the "
                 "default; the others are found through it. Repeatable: they are tried in turn")
         .placeholder("URL");
   command.option(prefix + "creds", options.credentials, "File with the credentials of a NATS user")
         .placeholder("FILE");
   command.option(prefix + "user", options.user, "Name of a NATS user with a password")
         .placeholder("NAME");
   command
         .option(prefix + "password-file", options.passwordFile,
                 "File whose first line is that user's password")
         .placeholder("FILE");
   command.flag(prefix + "tls", options.tls,
                "Require TLS, and a certificate that the system trusts; implied by the others");
   command
         .option(prefix + "tls-ca", options.tlsCa,
                 "Trust the certificates in this file instead, as PEM")
         .placeholder("FILE");
   command.option(prefix + "tls-cert", options.tlsCertificate, "Own certificate, as PEM")
         .placeholder("FILE");
   command.option(prefix + "tls-key", options.tlsKey, "The private key of that certificate, as PEM")
         .placeholder("FILE");
}

Fleet::Connection::Options connectionOptions(NatsOptions const& options, std::string const& name) {
   Fleet::Connection::Options made;
   made.urls = options.urls;
   if (made.urls.empty()) {
      made.urls.emplace_back("nats://127.0.0.1:4222");
   }
   made.name = name;
   made.user = options.user;
   std::string const password = fileOf("--password-file", options.passwordFile);
   made.password = password.substr(0, password.find_first_of("\r\n"));
   if (made.user.empty() != options.passwordFile.empty()) {
      throw Holt::Failure("--user needs --password-file, and the other way round",
                          Holt::Exit::usage);
   }
   made.credentials = options.credentials;
   made.tls = options.tls;
   made.tlsCa = options.tlsCa;
   made.tlsCertificate = options.tlsCertificate;
   made.tlsKey = options.tlsKey;
   return made;
}

}  // namespace Tools
