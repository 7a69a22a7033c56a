#include "LogCapture.h"
#include "LogMacros.h"

#include <zorcam/utils/std/Log.h>

#include <gtest/gtest.h>

using namespace zorcam_test;

class LogTest : public LogCaptureTest {};

TEST_F(LogTest, ErrorReachesBothSinks) {
    CAM_ULOGE("ZorCam/Utils", "[%s] bad %d", __func__, 7);
    auto a = androidLines();
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0].text, withLocation("[TestBody] bad 7", "TestBody", __LINE__ - 3, "tests/log_test.cpp"));
    expectOnlyLine(6, NSCam::Utils::ULog::DETAILS_ERROR, "ZorCam/Utils", "[TestBody] bad 7");
}
