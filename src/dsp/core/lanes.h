// SIMD lanes: this header and its parts in lanes/ are the only files of the library that know an instruction set.
//
// A lane type is a compiler vector, so + - * and comparisons are operators. What the operators cannot say is a named
// function here: fused multiply-add, the two NaN rules of maximum and minimum, loads and stores, shuffles, conversions.
// Every operation gives the same bits on every target (NaN payloads excepted):
//
//   f32x4, f64x2   on every target
//   f32x8, f64x4   where KRL_LANES is 8 (x86-64 with AVX2 and FMA)
//   f32v, f64v     the widest vectors of the target
//
// Kernels are templates over the lane type; the same template runs with `float` itself as a one-lane type.
//
//   types.h             the vectors, their traits; values, bits and memory into lanes and back
//   arithmetic.h        signs, fused multiply-add, sums
//   maximum.h           maximum and minimum under each rule for NaN and zeros; comparisons
//   shuffles.h          lanes in another order
//   complex_shuffles.h  complex samples in another order
//   side_by_side.h      two four-lane vectors in one step
//   conversions.h       double precision, integers, 16-bit samples
#pragma once

#include "dsp/core/lanes/arithmetic.h"
#include "dsp/core/lanes/complex_shuffles.h"
#include "dsp/core/lanes/conversions.h"
#include "dsp/core/lanes/maximum.h"
#include "dsp/core/lanes/shuffles.h"
#include "dsp/core/lanes/side_by_side.h"
#include "dsp/core/lanes/types.h"
