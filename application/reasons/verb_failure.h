// A failure inside a verb that has a reason of its own.

#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "reasons/reason.h"

namespace tolvarine::updater::application {

class VerbFailure : public std::runtime_error {
 public:
  // `text` is UTF-8, as a reason's text is.
  VerbFailure(ReasonCode code, const std::string& text, Path path = {})
      : std::runtime_error(text), code_(code), path_(std::move(path)) {}

  [[nodiscard]] Reason reason() const { return {code_, what(), path_}; }

 private:
  ReasonCode code_;
  Path path_;
};

}  // namespace tolvarine::updater::application
