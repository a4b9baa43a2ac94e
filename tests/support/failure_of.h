// The text of an exception, for tests.

#pragma once

#include <exception>
#include <string>

namespace tolvarine::updater {

// Returns the text of the exception that `operation` throws, empty if it throws none.
template <typename Operation>
std::string FailureOf(Operation operation) {
  try {
    operation();
    return {};
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace tolvarine::updater
