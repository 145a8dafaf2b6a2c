// SPDX-License-Identifier: Apache-2.0
#include "stage/messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tqfd/Logger.h"
#include "tqfd/StringConverter.h"

namespace tqtortho {
namespace {

// The bytes were taken from an independent GBK table (code page 936).
TEST(MessagesTest, TextsLeaveTheLibraryAsGbk) {
  EXPECT_EQ(ToGbk("影像"), "\xD3\xB0\xCF\xF1");
  EXPECT_EQ(ToGbk(message::kRectifying),
            "\xD5\xFD\xC9\xE4\xBE\xC0\xD5\xFD\xB4\xA6\xC0\xED"
            "\xD6\xD0...");
}

TEST(MessagesTest, EveryTextHasAGbkForm) {
  for (const std::string_view text :
       {message::kScaleAbnormal,    message::kParamFileError,    message::kExtentError,
        message::kRectifyError,     message::kRectifying,        message::kEstimating,
        message::kEstimateAbnormal, message::kImageSizeAbnormal, message::kObscuring,
        message::kWeighting,        message::kUpdating,          message::kPixMapError,
        message::kSizeError,        message::kRectifySeconds,    message::kUpdateSeconds,
        message::kMosaicSeconds,    message::kTextureError,      message::kNoOrthoReadable,
        message::kNothingMade,      message::kPhotoUnreadable,   message::kPhotoNotBytes,
        message::kOutputUnwritable, message::kPhotoSeesNothing,  message::kNoPhotos,
        message::kDsmUnreadable,    message::kDsmUnplaced,       message::kNoFootprint}) {
    EXPECT_EQ(tqfd::StringConverter::GbkToUtf8(ToGbk(text)), text);
  }
}

TEST(MessagesTest, LogAndStandardOutputGetGbk) {
  std::vector<std::string> logged;
  tqfd::Logger::SetSink([&](std::string_view text) { logged.emplace_back(text); });
  LogMessage("影像a");
  tqfd::Logger::SetSink({});
  EXPECT_THAT(logged, ::testing::ElementsAre("\xD3\xB0\xCF\xF1"
                                             "a"));
  ::testing::internal::CaptureStdout();
  PrintMessage("像\n");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "\xCF\xF1\n");
}

}  // namespace
}  // namespace tqtortho
