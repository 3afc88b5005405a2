// The operations as anybody would write them: one loop each, compiled with -O3 and -ffast-math, so that the compiler
// makes vectors of all of them, and the instruction set of the library. Arguments do not alias.
#pragma once

#include <cstdint>

namespace plain {

// real vectors
void multiply(float* d, const float* a, const float* b, uint32_t n);
void multiply_reversed(float* d, const float* a, const float* b, int32_t n);
void scale(float* d, const float* a, float g, uint32_t n);
void scale_inplace(float* d, float g, uint32_t n);
void set(float* d, float v, uint32_t n);
int equal(const float* a, const float* b, uint32_t n, float tolerance);
float abs_max(const float* a, uint32_t n);
float dot(const float* a, const float* b, uint32_t n);
double dot_double(const float* a, const float* b, uint32_t n);
float sum_of_squares(const float* a, uint32_t n);

// complex vectors
void add(float* d, const float* a, const float* b, uint32_t n);
void subtract(float* d, const float* a, const float* b, uint32_t n);
void copy(float* d, const float* a, uint32_t n);
void zero(float* d, uint32_t n);
void scale_complex(float* d, const float* a, float g, uint32_t n);
void scale_complex_inplace(float* d, float g, uint32_t n);
void scale_by_vector(float* d, const float* a, const float* v, uint32_t n);
void multiply_complex(float* d, const float* a, const float* b, uint32_t n);
void multiply_conjugate(float* d, const float* a, const float* b, float f, uint32_t n);
void accumulate_product(float* d, const float* a, const float* b, uint32_t n);
void accumulate_scaled(float* d, const float* a, float g, uint32_t n);
void mix(float* d, const float* a, const float* b, float ga, float gb, uint32_t n);
void mix_stack(float* d, const float* in, const float* c, int inputs, uint32_t n);
void mix_stack_to_both(float* d0, float* d1, const float* in, const float* c, int inputs, uint32_t n);
void reciprocal(float* d, const float* a, float f, uint32_t n);
void divide(float* d, const float* a, const float* b, uint32_t n);
void squared_magnitude(float* d, const float* a, float f, uint32_t n);

} // namespace plain
