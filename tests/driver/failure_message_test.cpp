#include "driver/failure_message.h"

#include <gtest/gtest.h>

#include "support/text_printers.h"

namespace tolvarine::updater {
namespace {

// The bytes of a code page are not decoded.
TEST(FailureMessageTest, DetailsFollowTheSentenceAndAreWidenedBySignExtension) {
  const std::u16string restored = u"The update failed. The original installation was restored.";
  EXPECT_EQ(FailureMessage(TransactionPhase::Backup, ""), restored);
  EXPECT_EQ(FailureMessage(TransactionPhase::None, "a\x7F\x80\xE9\xFF"),
            restored + u"\n\nDetails: a\x7F\xFF80\xFFE9\xFFFF");
}

}  // namespace
}  // namespace tolvarine::updater
