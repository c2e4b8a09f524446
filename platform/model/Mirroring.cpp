#include "platform/model/Mirroring.h"

namespace Mirroring {

const char* directionName(Direction direction) {
  switch (direction) {
    case Direction::directionRx:
      return "rx";
    case Direction::directionTx:
      return "tx";
    case Direction::directionBoth:
      return "both";
  }
  return "unknown";
}

const char* grePayloadTypeName(GrePayloadType type) {
  return type == GrePayloadType::grePayloadInnerPacket ? "inner-packet" : "full-packet";
}

}  // namespace Mirroring
