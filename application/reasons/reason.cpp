#include "reasons/reason.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "files/failure.h"
#include "platform/error_codes.h"
#include "reasons/sentences.h"
#include "reasons/verb_failure.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::uint32_t kErrorWriteProtect = 19;
constexpr std::uint32_t kErrorLockViolation = 33;
constexpr std::uint32_t kErrorHandleDiskFull = 39;
constexpr std::uint32_t kErrorDiskFull = 112;

// 0 for a failure without a code.
std::uint32_t CodeOf(const std::exception& failure) {
  if (const auto* const system = dynamic_cast<const SystemError*>(&failure)) return system->code();
  const auto* const files = dynamic_cast<const FilesystemError*>(&failure);
  return files == nullptr ? 0 : files->code();
}

std::string_view RemedyOf(std::uint32_t code) {
  switch (code) {
    case kErrorDiskFull:
    case kErrorHandleDiskFull:
      return "Free space on this volume, and try again.";
    case kErrorWriteProtect:
    case platform::kErrorAccessDenied:
      return "Choose a place that this user can write to.";
    case kErrorLockViolation:
    case platform::kErrorSharingViolation:
      return "End the program that has it open, and try again.";
    default:
      return "Try again.";
  }
}

}  // namespace

std::string_view NameOf(ReasonCode code) {
  static constexpr std::array kNames = {
#define TOLVARINE_REASON(enumerator, name) std::string_view(name),
      TOLVARINE_REASONS(TOLVARINE_REASON)
#undef TOLVARINE_REASON
  };
  return kNames[static_cast<std::size_t>(code)];
}

Reason ReasonOf(const std::exception& failure) {
  if (const auto* const verb = dynamic_cast<const VerbFailure*>(&failure)) return verb->reason();
  const std::uint32_t code = CodeOf(failure);
  const bool full = code == kErrorDiskFull || code == kErrorHandleDiskFull;
  return {full ? ReasonCode::NoSpace : ReasonCode::SystemFailure,
          "It failed: " + FailureText(failure) + " " + std::string(RemedyOf(code))};
}

bool Refuses(const Reasons& reasons) {
  return std::ranges::any_of(reasons, [](const Reason& reason) { return !reason.warning; });
}

}  // namespace tolvarine::updater::application
