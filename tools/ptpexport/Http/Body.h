// The body of an answer, rendered while the client reads it.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace Ptpexport {

/// What an answer consists of, produced piece by piece: the server asks for the next bytes when the
/// client has taken the last ones, so that nothing is rendered ahead for a slow client, and no
/// answer occupies the loop for longer than one piece takes.
///
///     class Count final : public Body {
///        std::size_t read(std::span<char> into) override { ... }
///        bool ended() const override { return left_ == 0; }
///     };
///
/// Whatever it renders may change between two calls: a body holds what it needs (`Sarn::Ptr`), or
/// finds its place again by key.
///
/// Threads: that of the server's loop.
class Body {
public:
   virtual ~Body() = default;
   Body() = default;
   Body(Body const&) = delete;
   Body& operator=(Body const&) = delete;

   /// Writes the next bytes, as many as are at hand and fit, and returns their number. 0: there are
   /// none now, and the body calls `wake` when there are. `into` has room for a hundred bytes at
   /// least, usually for a few thousand.
   virtual std::size_t read(std::span<char> into) = 0;
   /// Whether everything has been read.
   virtual bool ended() const = 0;

   /// Set by the server before the first `read`: has it read again. It may be called at any time,
   /// from inside `read` too.
   std::function<void()> wake;
};

}  // namespace Ptpexport
