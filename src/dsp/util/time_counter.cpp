// Arithmetic on time counter values.
#include "korla/dsp/time_counter.h"

void KRL_time_init(uint64_t*) {}

void KRL_time_end(uint64_t*) {}

void KRL_time_reset(uint64_t* time) {
    if (time)
        *time = 0;
}

uint64_t KRL_time_add(uint64_t a, uint64_t b) { return a + b; }

uint64_t KRL_time_sub(uint64_t a, uint64_t b) { return a - b; }

double KRL_time_div(uint64_t t, uint32_t n) { return static_cast<double>(t) / static_cast<double>(n); }

int32_t KRL_time_lt(uint64_t a, uint64_t b) { return a < b; }
