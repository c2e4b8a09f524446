// The one reaction to a broken invariant: say what broke and stop.
#pragma once

#include <string_view>

namespace Orb {

// Writes the message and a newline to standard error, flushes, and stops the
// process with a failed assertion.
[[noreturn]] void orbAssert(std::string_view message);

// "<source>:<line>: <text>", for assertions that name their source.
[[noreturn]] void orbAssertAt(const char* source, int line, std::string_view text);

// "<source> -- assertion failed(<expression>): <message>", for invariants
// whose breach needs a word of explanation beyond the expression.
[[noreturn]] void orbAssertExplained(const char* source, std::string_view expression, std::string_view message);

}  // namespace Orb

// Asserts an invariant, naming the failed expression.
#define ORB_ASSERT(expr)                  \
  do {                                    \
    if (!(expr)) ::Orb::orbAssert(#expr); \
  } while (0)

// Asserts an invariant with the given text and the source path and line.
#define ORB_ASSERT_AT(source, expr, text)                    \
  do {                                                       \
    if (!(expr)) ::Orb::orbAssertAt(source, __LINE__, text); \
  } while (0)

// Asserts an invariant, naming the source and the failed expression and
// explaining what was expected.
#define ORB_ASSERT_EXPLAINED(source, expr, message)                 \
  do {                                                              \
    if (!(expr)) ::Orb::orbAssertExplained(source, #expr, message); \
  } while (0)
