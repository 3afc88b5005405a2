// Controls and meters of a running stream from other threads; built by ThreadSanitizer, too.
#include <atomic>
#include <thread>

#include "stream_host.h"

using namespace korla_test;

namespace {

TEST(Stream, OtherThreadsSetControlsAndReadMeters) {
    KorlaStream stream(stream_config("5.1", "stereo"));
    std::atomic<bool> done{false};
    std::thread other([&] {
        for (float db = 0; !done; db = db > 5 ? -6 : db + 1) {
            stream.set(KORLA_DIALOGUE_DB, db);
            const korla_meters meters = stream.meters();
            float gains[12];
            EXPECT_GE(meters.frames_in, meters.frames_out);
            EXPECT_EQ(korla_stream_matrix(stream, gains, nullptr), KORLA_OK);
        }
    });
    Samples in = stream.input(48000);
    Random random(8);
    in.fill([&](size_t, size_t) { return random.uniform(); });
    EXPECT_LE(peak(stream.run(in, random_calls(2))), 1.0 + 0x1p-22);
    done = true;
    other.join();
}

} // namespace
