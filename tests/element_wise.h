// Generic tests of operations on vectors: a table row says how a pair is called and what its result is.
//
// Include it once in a test, define `operations` and every row is tested at all lengths, alignments and overlaps.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>

#include "export_list.h"
#include "guarded_buffer.h"
#include "reference/ieee.h"
#include "signals.h"

namespace korla_test {

struct Operand {
    size_t floats; // per element
    bool may_overlap = true;
    size_t multiple = 1; // the operand is padded to a multiple of so many elements
    size_t size(size_t n) const { return floats * ((n + multiple - 1) / multiple * multiple); }
};
using Operands = std::vector<Operand>;

// d: the destination, its former values when it comes in; s: the sources, at least three pointers, d if there are less.
struct Operation {
    std::vector<std::string> names; // both entries, and what else the row covers
    std::function<void(float*d, const float*const*s, uint32_t n)> flex, strict;
    size_t floats; // per element of the destination; two destinations stand one behind the other
    Operands sources;
    std::function<void(float* result, const float* d, const float* const* s, size_t n, bool strict)> model;
    std::vector<uint32_t> block_lengths = {}; // of operations on blocks, which may overlap anyhow
    uint32_t strict_multiple = 4;             // the strict entry takes multiples of it
};
inline std::ostream& operator<<(std::ostream& out, const Operation& op) { return out << op.names[0]; }
extern const std::vector<Operation> operations;

#define KORLA_OPERANDS [[maybe_unused]] const float *a = s[0], *b = s[1], *c = s[2];
#define KORLA_CALL(f, arguments)                                                                                       \
    [](float* d, [[maybe_unused]] const float* const* s, [[maybe_unused]] uint32_t n) { KORLA_OPERANDS f arguments; }
// The expression is float i of the result.
#define PAIR(flex, strict_entry, arguments, floats, sources, ...)                                                      \
    pair({#flex, #strict_entry}, KORLA_CALL(flex, arguments), KORLA_CALL(strict_entry, arguments), floats, sources,    \
         []([[maybe_unused]] const float* d, const float* const* s, [[maybe_unused]] size_t i,                         \
            [[maybe_unused]] size_t n, [[maybe_unused]] bool strict) -> float { KORLA_OPERANDS return __VA_ARGS__; })
Operation pair(std::vector<std::string> names, auto flex, auto strict, size_t floats, Operands sources, auto element) {
    return {names, flex, strict, floats, sources, [=](float* result, auto d, auto s, size_t n, bool is_strict) {
                for (size_t i = 0; i < floats * n; i++)
                    result[i] = element(d, s, i, n, is_strict);
            }};
}

// Numbers of many sizes, some of them special.
inline std::vector<float> awkward_values(size_t n, uint64_t seed, uint32_t special_in_16) {
    static const float special[] = {0.0f,      -0.0f,     0x1be2p-149f, -0x3p-149f, infinity,
                                    -infinity, nan_value, 3e38f,        1.0f,       -1e-38f};
    Random random(seed);
    std::vector<float> v(n);
    for (float& x : v) {
        const int exponent = static_cast<int>(random.bits() % 24) - 12;
        x = random.bits() % 16 < special_in_16 ? special[random.bits() % 10] : std::ldexp(random.uniform(), exponent);
    }
    return v;
}

class ElementWise : public ::testing::TestWithParam<Operation> {
protected:
    const Operation& op = GetParam();

    // The variant chooses the data and, for the flex entry, the alignments. One source may be overlapped: then the
    // destination begins `offset` floats behind it.
    void check(bool strict, uint32_t n, size_t variant, int overlapped = -1, long offset = 0) {
        SCOPED_TRACE(::testing::Message() << "strict " << strict << ", n = " << n << ", variant " << variant
                                          << ", source " << overlapped << " at " << offset);
        const uint32_t special_in_16 = variant % 4 == 0 ? 0 : variant % 2 ? 8 : 1;
        std::vector<std::vector<float>> x;
        std::vector<std::unique_ptr<GuardedBuffer<float>>> in;
        std::vector<const float*> s;
        for (const Operand& operand : op.sources) {
            x.push_back(awkward_values(operand.size(n), 100 * n + 10 * variant + x.size(), special_in_16));
            in.push_back(std::make_unique<GuardedBuffer<float>>(x.back(), strict ? 0 : (3 * variant + x.size()) % 8));
            s.push_back(in.back()->data());
        }
        constexpr size_t margin = 80;
        GuardedBuffer<float> out(awkward_values(op.floats * n, n + variant, special_in_16), strict ? 0 : variant);
        GuardedBuffer<float> expected(out.size()), both(2 * margin + 16 * n);
        float* d = out.data();
        s.resize(std::max<size_t>(s.size(), 3), d);
        op.model(expected.data(), d, s.data(), n, strict);
        if (overlapped >= 0) {
            float* const source = both.data() + margin;
            std::copy(x[overlapped].begin(), x[overlapped].end(), source);
            s[overlapped] = source, d = source + offset;
        }
        (strict ? op.strict : op.flex)(d, s.data(), n);
        ASSERT_TRUE(bit_equal(d, expected.data(), expected.size()));
        for (size_t j = 0; j < in.size(); j++)
            ASSERT_TRUE(bit_equal(in[j]->data(), x[j], x[j].size())) << "source " << j << " changed";
        ASSERT_TRUE(out.intact());
    }
};

TEST_P(ElementWise, GivesTheStatedBitsAtEveryLengthAndAlignment) {
    std::vector<uint32_t> lengths = {63, 64, 65, 100, 257, 1020, 1021};
    for (uint32_t n = 0; n <= 40; n++)
        lengths.push_back(n);
    const bool blocks = !op.block_lengths.empty();
    for (uint32_t n : blocks ? op.block_lengths : lengths)
        for (size_t variant = 0; variant < (blocks ? 64 : 8); variant++) {
            ASSERT_NO_FATAL_FAILURE(check(false, n, variant));
            if (n % op.strict_multiple == 0) {
                ASSERT_NO_FATAL_FAILURE(check(true, n, variant));
            }
        }
}

// At every distance for which one order of processing never writes what it still has to read.
TEST_P(ElementWise, DestinationMayOverlapASource) {
    const bool blocks = !op.block_lengths.empty();
    for (int j = 0; j < static_cast<int>(op.sources.size()); j++)
        for (uint32_t n : {1, 2, 3, 4, 5, 7, 8, 9, 12, 16, 19, 23, 31, 32, 65, 150})
            for (long offset = -67; offset <= 67; offset++) {
                const long wider = static_cast<long>(op.floats) - static_cast<long>(op.sources[j].floats);
                if (op.sources[j].may_overlap && (blocks ? n == 32 : wider * offset >= 0)) {
                    ASSERT_NO_FATAL_FAILURE(check(false, n, 0, j, offset));
                    if (offset == 0 && wider == 0 && n % op.strict_multiple == 0) {
                        ASSERT_NO_FATAL_FAILURE(check(true, n, 0, j));
                    }
                }
            }
}

INSTANTIATE_TEST_SUITE_P(Family, ElementWise, ::testing::ValuesIn(operations),
                         [](const auto& test) { return test.param.names[1] + "_" + std::to_string(test.index); });

// The names in a table and those of members with tests of their own.
std::set<std::string> names_of(const auto& table, const auto&... further) {
    std::set<std::string> names = {further...};
    for (const auto& row : table)
        names.insert(row.names.begin(), row.names.end());
    return names;
}

} // namespace korla_test
