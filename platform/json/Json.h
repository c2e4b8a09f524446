// RapidJSON as this code base uses it. A broken expectation of the library
// (a value read as the wrong type, say) stops the process in every build,
// not only where assert() is compiled in. Include RapidJSON only through
// this header so that every user agrees on that.
#pragma once

namespace Json {

// Writes "rapidjson: <expression> (<file>:<line>)" to standard error and
// stops the process.
[[noreturn]] void assertFailed(const char* expression, const char* file, int line);

}  // namespace Json

#define RAPIDJSON_ASSERT(x) ((x) ? static_cast<void>(0) : ::Json::assertFailed(#x, __FILE__, __LINE__))
#define RAPIDJSON_HAS_STDSTRING 1

// The library's internal stack does arithmetic on its null pointer before its
// first allocation (harmless in practice, undefined by the letter); keep
// UBSan's pointer check out of the library's code so that it reports ours.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif
