#include "tools/ptpexport/Page.h"

#include <cstdint>
#include <cstdio>

namespace Ptpexport {

namespace {

EmbeddedFile const* pageFile(std::string_view path) {
   for (EmbeddedFile const& file : embeddedFiles()) {
      if (file.path == path) {
         return &file;
      }
   }
   return nullptr;
}

std::string_view mediaType(EmbeddedFile const& file) {
   struct Type {
      std::string_view ending;
      std::string_view type;
   };
   constexpr Type types[] = {
         {".js", "text/javascript; charset=utf-8"},
         {".css", "text/css; charset=utf-8"},
         {".svg", "image/svg+xml"},
   };
   for (Type const& type : types) {
      if (file.path.ends_with(type.ending)) {
         return type.type;
      }
   }
   return "text/html; charset=utf-8";
}

std::string entityTag(EmbeddedFile const& file) {
   // FNV-1a: it tells versions of a file apart, and nothing else.
   std::uint64_t hash = 0xcbf29ce484222325;
   for (char const c : file.content) {
      hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
   }
   char text[24];
   std::snprintf(text, sizeof(text), "\"%016llx\"", static_cast<unsigned long long>(hash));
   return text;
}

}  // namespace

Reply pageReply(Request const& request) {
   EmbeddedFile const* const file = pageFile(request.rest);
   if (file == nullptr) {
      return refusal(404, request.target.path +
                                ": there is nothing here; '/' is a page for people, "
                                "and docs/export.md lists the rest");
   }
   Reply reply;
   std::string const tag = entityTag(*file);
   reply.headers = {{"ETag", tag}, {"Cache-Control", "no-cache"}};
   if (request.header("If-None-Match") == tag) {
      reply.status = 304;
      return reply;
   }
   reply.headers.emplace_back("Content-Security-Policy", pagePolicy);
   reply.headers.emplace_back("Referrer-Policy", "no-referrer");
   reply.contentType = mediaType(*file);
   reply.text = file->content;
   return reply;
}

}  // namespace Ptpexport
