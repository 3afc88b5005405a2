// Loading the module, and one stream through it.
#include "module.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "error.h"
#include "text.h"

namespace host {
namespace {

// The library logs refused formats to standard output, where the host's own report goes; the host says it in one line
// of its own.
class QuietStandardOutput {
public:
    QuietStandardOutput() {
        std::fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (saved_ >= 0 && null >= 0)
            dup2(null, STDOUT_FILENO);
        if (null >= 0)
            close(null);
    }
    ~QuietStandardOutput() {
        std::fflush(stdout);
        if (saved_ >= 0) {
            dup2(saved_, STDOUT_FILENO);
            close(saved_);
        }
    }

private:
    int saved_;
};

} // namespace

Module::Module(const std::string& path) {
    std::error_code ignored;
    const auto beside = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / KORLA_LIBRARY_FILE;
    const std::string name = !path.empty()                              ? path
                             : std::filesystem::exists(beside, ignored) ? beside.string()
                                                                        : KORLA_LIBRARY_FILE;
    // A path without a slash would be searched for in the system's folders.
    const bool is_file = std::filesystem::exists(name, ignored);
    void* library = dlopen(is_file ? std::filesystem::absolute(name).c_str() : name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw Error(Status::library, format_text("cannot load the library: %s; name it with --library", dlerror()));
    library_.reset(library, dlclose);
    acli_ = static_cast<const acli_descriptor*>(dlsym(library, "ACLI"));
    if (!acli_ || std::memcmp(acli_->magic, ACLI_MAGIC, sizeof acli_->magic) != 0)
        throw Error(Status::library,
                    name + " holds no module of this kind (no ACLI object); name another with --library");
    if (acli_->interface_version != ACLI_INTERFACE_VERSION)
        throw Error(Status::library, format_text("%s has interface version 0x%08x, this host needs 0x%08x",
                                                 name.c_str(), acli_->interface_version, ACLI_INTERFACE_VERSION));
    Dl_info where;
    path_ = dladdr(acli_, &where) && where.dli_fname ? where.dli_fname : name;
}

Stream::Stream(const Module& module) : acli_(module.acli()) {
    if (acli_.create(0, 0, &handle_) != ACLI_OK)
        throw Error(Status::processing, "the module could not create an instance (out of memory)");
}

std::optional<StreamOutput> Stream::send(const StreamFormat& wanted, uint32_t mode) {
    if (wanted.input.size() > ACLI_MAX_CHANNELS)
        return std::nullopt;
    auto block = std::make_unique<acli_media_format>();
    block->input_channel_count = static_cast<uint32_t>(wanted.input.size());
    block->sample_rate = wanted.sample_rate;
    block->interleaved = !wanted.planar;
    block->explicit_layout = wanted.layout.has_value();
    block->layout_index = wanted.layout.value_or(0);
    block->sample_format = module_code(wanted.samples);
    for (size_t c = 0; c < wanted.input.size(); c++)
        block->input_channel_map[c] = wanted.input[c];
    const acli_param_value value = {mode, 0, block.get()};
    {
        QuietStandardOutput quiet;
        if (acli_.set_param(handle_, ACLI_PARAM_MEDIA_FORMAT, 0, 0, &value) != ACLI_OK)
            throw Error(Status::processing, "the module failed to read the media format");
    }
    const uint32_t count = block->output_channel_count;
    if (count == 0 || count > ACLI_MAX_CHANNELS)
        return std::nullopt;
    return StreamOutput{{block->output_channel_map, block->output_channel_map + count}, block->output_layout_mask};
}

StreamOutput Stream::configure(const StreamFormat& wanted) {
    const auto output = send(wanted, ACLI_MODE_APPLY);
    if (!output && wanted.layout)
        throw Error(Status::layout,
                    format_text("the module refuses layout %s for this input", layout_names[*wanted.layout]));
    if (!output)
        throw Error(Status::layout, "the module has no automatic layout for the input " + speaker_names(wanted.input) +
                                        "; choose one with --layout, or name the channels with --map "
                                        "('korla-host layouts' lists the inputs it knows)");
    input_channels_ = static_cast<uint32_t>(wanted.input.size());
    output_channels_ = static_cast<uint32_t>(output->map.size());
    sample_bytes_ = static_cast<uint32_t>(bytes_per_sample(wanted.samples));
    return *output;
}

void Stream::process(const std::byte* in, std::byte* out, size_t frames) {
    acli_buffer source{}, result{};
    source.bytes = static_cast<uint32_t>(frames) * input_channels_ * sample_bytes_;
    source.data = const_cast<std::byte*>(in);
    source.channels = input_channels_;
    source.bits_per_sample = 8 * sample_bytes_;
    const uint32_t expected = static_cast<uint32_t>(frames) * output_channels_ * sample_bytes_;
    result.bytes = expected;
    result.data = out;
    const int32_t code = acli_.process(handle_, &source, &result);
    if (code != ACLI_OK)
        throw Error(Status::processing,
                    format_text("the module cannot process this stream (code %d): %u channels in, %u out", code,
                                input_channels_, output_channels_));
    if (result.bytes != expected)
        throw Error(Status::processing,
                    format_text("the module produced %u bytes instead of %u", result.bytes, expected));
}

} // namespace host
