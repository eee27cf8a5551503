// A request and its answer, as the parts of the program see them.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/ptpexport/Http/Body.h"
#include "tools/ptpexport/Http/Target.h"

namespace Ptpexport {

/// A GET or HEAD request; the server answers all others.
class Request {
public:
   Target target;
   /// What follows the prefix of the route, without its slash: "ptp/status" in "/state/ptp/status"
   /// for the route "/state/".
   std::string rest;
   /// Whether the body will not be sent.
   bool head = false;

   /// The value of a header, by its name in any case; empty if there is none.
   virtual std::string header(char const* name) const = 0;

protected:
   ~Request() = default;
};

struct Reply {
   unsigned status = 200;
   std::string contentType = "text/plain; charset=utf-8";
   /// Further headers.
   std::vector<std::pair<std::string, std::string>> headers;
   /// The whole answer, if there is no `body`.
   std::string text;
   std::unique_ptr<Body> body;
   /// Whether the body goes on for as long as the client reads: it has no time limit as a whole.
   bool endless = false;
};

/// An error for a person: one line of text, made printable, since it may quote the request.
Reply refusal(unsigned status, std::string const& what);

/// Answers a request. A `Holt::Failure` becomes 404 with its message, any other exception 500.
using Handler = std::function<Reply(Request const&)>;

}  // namespace Ptpexport
