// A mirror session's attributes, given to the chip once the session is in
// it and again whenever the configuration changes one.
#include "Orb/OrbMirroringSm.h"
#include "Orb/OrbMirroringTrace.h"

#include <algorithm>
#include <limits>

namespace Orb {

namespace {

// The attributes in the order they are given to the chip: the copy's size
// first, then which frames are copied, then how fast, then how a GRE
// destination carries them.
enum SessionAttribute : std::size_t {
  truncation,
  headerRemoval,
  rxSampleRate,
  rateLimit,
  grePayloadType,
  attributeCount
};

const char* attributeName(std::size_t attribute) {
  switch (attribute) {
    case truncation:
      return "truncation";
    case headerRemoval:
      return "header removal";
    case rxSampleRate:
      return "rx sample rate";
    case rateLimit:
      return "rate limit";
    default:
      return "gre payload type";
  }
}

std::uint64_t wanted(const Mirroring::Session& config, std::size_t attribute) {
  switch (attribute) {
    case truncation:
      return config.truncationSize();
    case headerRemoval:
      return config.headerRemovalSize();
    case rxSampleRate:
      return config.rxSampleRate();
    case rateLimit:
      return config.rateLimit();
    default:
      return static_cast<std::uint64_t>(config.grePayloadType());
  }
}

}  // namespace

void VexMirroringSession::syncAttributes() {
  const std::vector<std::string> refusedBefore = std::move(attributesRefused_);
  attributesRefused_.clear();
  if (!createdInHw_) return;
  auto& helper = sm_.platformHelper();
  for (std::size_t attribute = 0; attribute < attributeCount; ++attribute) {
    const std::uint64_t value = wanted(*config_, attribute);
    if (attributesInHw_[attribute] == value) continue;
    const bool refused =
        std::find(refusedBefore.begin(), refusedBefore.end(), attributeName(attribute)) != refusedBefore.end();
    if (!attributesInHw_[attribute] && value == 0 && !refused) {
      // Not known (after a restart) and wanted off: taken as off, so that a
      // chip layer without the attribute is never asked for it.
      attributesInHw_[attribute] = 0;
      continue;
    }
    // The 32-bit attributes come from 32-bit configuration.
    const auto small =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(value, std::numeric_limits<std::uint32_t>::max()));
    bool ok = false;
    switch (attribute) {
      case truncation:
        ok = helper.setMirrorTruncation(name_, id_, mirrorGroup_, value != 0, small);
        break;
      case headerRemoval:
        ok = helper.setMirrorHeaderRemoval(name_, id_, mirrorGroup_, small);
        break;
      case rxSampleRate:
        ok = helper.setRxSampleRate(name_, id_, small);
        break;
      case rateLimit:
        ok = helper.setRateLimit(name_, mirrorGroup_, "", value);
        break;
      default:
        ok = helper.setGrePayloadType(*config_, mirrorGroup_);
        break;
    }
    if (ok) {
      attributesInHw_[attribute] = value;
      BLIP(mirroringTrace(), 5, "{} {} set to {}", name_, attributeName(attribute), value);
      continue;
    }
    // Not known any more: the next attempt gives it again whatever it is.
    attributesInHw_[attribute].reset();
    attributesRefused_.push_back(attributeName(attribute));
    BLIP(mirroringTrace(), 1, "Failed to set {} of mirror session {} in hw", attributeName(attribute), name_);
  }
  if (!attributesRefused_.empty()) sm_.failedPortsPending();
}

}  // namespace Orb
