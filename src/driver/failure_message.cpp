#include "driver/failure_message.h"

namespace tolvarine::updater {
namespace {

constexpr char16_t kDetailsSeparator[] = u"\n\nDetails: ";

const char16_t* BaseMessage(TransactionPhase status) {
  switch (status) {
    case TransactionPhase::Corrupt:
      return u"The update transaction state is corrupt. No cleanup was attempted; the protected "
             u"update workspace was preserved.";
    case TransactionPhase::Rollback:
      return u"The update failed and rollback is incomplete. Retry the update before using the "
             u"application.";
    default:
      return u"The update failed. The original installation was restored.";
  }
}

}  // namespace

std::u16string FailureMessage(TransactionPhase status, std::string_view details) {
  std::u16string message = BaseMessage(status);
  if (!details.empty()) message.append(kDetailsSeparator).append(WidenBytes(details));
  return message;
}

std::u16string WidenBytes(std::string_view text) {
  std::u16string wide;
  wide.reserve(text.size());
  for (const char byte : text) {
    wide.push_back(static_cast<char16_t>(static_cast<signed char>(byte)));
  }
  return wide;
}

}  // namespace tolvarine::updater
