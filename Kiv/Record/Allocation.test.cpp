// In the steady state, recording a change allocates nothing.
#include "Kiv/NboAttrLogRecorder.h"
#include "KivTest/StreamAllocation.test.h"

using namespace StreamTesting;

namespace {

struct Nowhere final : Kiv::NboAttrLog::RecordSink {
   U64 begin() override { return 1; }
   bool write(U8 const*, std::size_t) override { return true; }
   Sarn::String reason() const override { return {}; }
};

class RecordingAllocation : public StreamAllocation {};

TEST_F(RecordingAllocation, IsNone) {
   Nowhere nowhere;
   Kiv::NboAttrLog::Recorder recorder(source.hub, nowhere);
   U64 now = 0;
   EXPECT_EQ(allocationsOf([&](int i) {
                root->u32Is(static_cast<U32>(i));
                root->byNumberIs(static_cast<U32>(i % 2), i % 4 < 2 ? "a" : "b");
                ++now;
                recorder.turn({now, now});
             }),
             0);
   EXPECT_GT(recorder.stats().changes, 100u);
   EXPECT_TRUE(recorder.complete());
}

}  // namespace
