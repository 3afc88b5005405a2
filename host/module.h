// The module as a host sees it: a library found by name and the one object in it.
#pragma once

#include <korla/acli.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "channels.h"
#include "samples.h"

namespace host {

class Module {
public:
    // path empty: the library beside the executable, else the one of the system. Throws Error.
    explicit Module(const std::string& path);

    const acli_descriptor& acli() const { return *acli_; }
    const std::string& path() const { return path_; }

private:
    std::shared_ptr<void> library_;
    const acli_descriptor* acli_ = nullptr;
    std::string path_;
};

struct StreamFormat {
    ChannelMap input; // in canonical order
    uint32_t sample_rate = 48000;
    SampleFormat samples = SampleFormat::f32;
    bool planar = false;
    std::optional<uint32_t> layout; // nothing: automatic
};

struct StreamOutput {
    ChannelMap map;
    uint32_t layout_mask;
};

// One instance of the module.
class Stream {
public:
    explicit Stream(const Module& module);
    ~Stream() { acli_.destroy(handle_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // What the module would make of a format; nothing when it refuses.
    std::optional<StreamOutput> probe(const StreamFormat& format) { return send(format, ACLI_MODE_PROBE); }

    // Applies a format. Throws Error when the module refuses.
    StreamOutput configure(const StreamFormat& format);

    // in, out: frames of the configured format. frames is a multiple of 256. Throws Error.
    void process(const std::byte* in, std::byte* out, size_t frames);

private:
    std::optional<StreamOutput> send(const StreamFormat& format, uint32_t mode);

    const acli_descriptor& acli_;
    void* handle_ = nullptr;
    uint32_t input_channels_ = 0, output_channels_ = 0, sample_bytes_ = 0;
};

} // namespace host
