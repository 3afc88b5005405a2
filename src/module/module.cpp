// The descriptor, and the entry points through which a host drives its instances.
#include <cstdlib>
#include <cstring>

#include "module/instance.h"

using korla::module::Instance;

char session_identity[15] = "KorlaDownmixer";

namespace {

Instance* instance_of(void* handle) { return static_cast<Instance*>(handle); }

char* acli_get_name(uint32_t id, char** out) {
    constexpr uint32_t module_name = 1;
    char* name = id == module_name ? strdup(session_identity) : nullptr;
    if (out)
        *out = name;
    return name;
}

int32_t acli_free_name(void* name) {
    std::free(name);
    return ACLI_OK;
}

int32_t acli_query(void* handle, uint32_t id, uintptr_t, uintptr_t, const uint32_t* in, uintptr_t, uint32_t* out7,
                   uint32_t* out8) {
    // The one question a host asks; what it means by it is not known here.
    constexpr uint32_t known_id = 3, known_selector = 2, answer_7 = 4, answer_8 = 0;
    if (!handle)
        return ACLI_FAILED;
    if (id != known_id)
        return ACLI_UNSUPPORTED;
    if (!in)
        return ACLI_FAILED;
    if (*in != known_selector)
        return ACLI_UNSUPPORTED;
    if (!out7 || !out8)
        return ACLI_FAILED;
    *out8 = answer_8;
    *out7 = answer_7;
    return ACLI_OK;
}

int32_t acli_unsupported(void* handle, ...) { return handle ? ACLI_UNSUPPORTED : ACLI_FAILED; }

int32_t acli_create(uintptr_t, uintptr_t, void** out_handle) {
    if (!out_handle)
        return ACLI_FAILED;
    void* instance = std::calloc(1, sizeof(Instance));
    if (!instance)
        return ACLI_FAILED;
    *out_handle = instance;
    return ACLI_OK;
}

int32_t acli_destroy(void* handle) {
    if (!handle)
        return ACLI_FAILED;
    std::free(instance_of(handle)->engine_memory);
    std::free(handle);
    return ACLI_OK;
}

int32_t acli_set_param(void* handle, uint32_t param_id, uintptr_t, uintptr_t, const acli_param_value* value) {
    if (!handle)
        return ACLI_FAILED;
    if (param_id != ACLI_PARAM_MEDIA_FORMAT)
        return ACLI_OK;
    if (!value || !value->format)
        return ACLI_FAILED;
    if (value->mode == ACLI_MODE_PROBE) {
        Instance scratch{};
        korla::module::parse_media_format(scratch, *value->format);
    } else if (value->mode == ACLI_MODE_APPLY) {
        korla::module::parse_media_format(*instance_of(handle), *value->format);
    }
    return ACLI_OK; // a refusal shows in the block
}

int32_t acli_process(void* handle, const acli_buffer* in, acli_buffer* out) {
    if (!handle || !in || !out)
        return ACLI_FAILED;
    return korla::module::process(*instance_of(handle), *in, *out) ? ACLI_OK : ACLI_FAILED;
}

} // namespace

acli_descriptor ACLI = {
    {'T', 'L', 'C', 'A'}, ACLI_INTERFACE_VERSION, "KorlaDownmixer",   "NRX",
    acli_get_name,        acli_free_name,         acli_query,         acli_unsupported,
    acli_create,          acli_unsupported,       acli_process,       acli_set_param,
    acli_unsupported,     acli_destroy,           {nullptr, nullptr},
};
static_assert(sizeof(ACLI) == 120);
