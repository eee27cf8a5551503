// Options of every program that connects to a fleet.
#pragma once

#include <string>
#include <vector>

#include "Fleet/Connection.h"
#include "tools/cli/Command.h"

namespace Tools {

/// How to reach a fleet, as typed.
struct NatsOptions {
   std::vector<std::string> urls;
   std::string user;
   std::string passwordFile;
   std::string credentials;
   bool tls = false;
   std::string tlsCa;
   std::string tlsCertificate;
   std::string tlsKey;
};

/// Adds `--nats` and what belongs to it. `urlOption`: another name for `--nats`. `prefix`: what the
/// names of the others begin with.
void addNatsOptions(Command const& command, NatsOptions& options,
                    std::string const& urlOption = "--nats", std::string const& prefix = "--");

/// The options of a connection. `name`: what the server shows. Throws `Holt::Failure` if the file
/// of the password cannot be read.
Fleet::Connection::Options connectionOptions(NatsOptions const& options, std::string const& name);

}  // namespace Tools
