#include "platform/json/Json.h"

#include <cstdio>
#include <cstdlib>

namespace Json {

void assertFailed(const char* expression, const char* file, int line) {
  std::fprintf(stderr, "rapidjson: %s (%s:%d)\n", expression, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Json
