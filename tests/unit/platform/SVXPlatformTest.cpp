// The process-wide context and the diagnostics capture: both are scopes that
// must put back exactly what they replaced, also when nested.
#include "platform/SVXPlatform.h"

#include <gtest/gtest.h>

#include "platform/CVXVirtualLoop.h"
#include "platform/VXDiagnostics.h"
#include "support/PlatformFakes.h"

namespace {

TEST(PlatformScope, NestedScopesRestoreWhatTheyReplaced) {
    CVXVirtualLoop outerLoop(5000000), innerLoop(7000000);
    CEventLog log;
    CRecordingDevice device(log);
    ASSERT_EQ(SVXPlatform::Get().loop, nullptr);
    EXPECT_EQ(SVXPlatform::Now(), 0.0);  // no loop, no time
    {
        CVXPlatformScope outer(SVXPlatform{.loop = &outerLoop, .device = &device});
        EXPECT_EQ(SVXPlatform::Now(), 5.0);
        {
            CVXPlatformScope inner(SVXPlatform{.loop = &innerLoop});
            EXPECT_EQ(SVXPlatform::Now(), 7.0);
            EXPECT_EQ(SVXPlatform::Get().device, nullptr);  // replaced whole, not merged
        }
        EXPECT_EQ(SVXPlatform::Get().loop, &outerLoop);
        EXPECT_EQ(SVXPlatform::Get().device, &device);
    }
    EXPECT_EQ(SVXPlatform::Get().loop, nullptr);
    EXPECT_EQ(SVXPlatform::Get().device, nullptr);
}

TEST(DiagnosticCapture, InnermostScopeTakesTheLinesWhole) {
    CVXDiagnosticCapture outer;
    VXDiagnostic("first %d\n", 1);
    {
        CVXDiagnosticCapture inner;
        // Longer than any fixed line buffer: nothing may be cut.
        const std::string longName(600, 'x');
        VXDiagnostic("%s (%08x)\n", longName.c_str(), 0xE00002C5u);
        EXPECT_EQ(inner.Text(), longName + " (e00002c5)\n");
        EXPECT_EQ(inner.Take(), longName + " (e00002c5)\n");
        EXPECT_EQ(inner.Text(), "");
    }
    VXDiagnostic("second %ld\n", static_cast<long>(static_cast<int32_t>(0xFFFFFFFFu)));
    EXPECT_EQ(outer.Text(), "first 1\nsecond -1\n");
}

}  // namespace
