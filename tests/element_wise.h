// Generic tests of element-wise operations: a table row says how a pair is called and what each float of its result is.
//
// Include it once in a test, define `operations()` and every row is tested at all lengths, alignments and overlaps.
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

struct Operation {
    std::string flex_name, strict_name;
    std::function<void(float*d, const float*const*s, uint32_t n)> flex, strict;
    size_t floats; // per element of the destination; two destinations stand one behind the other
    std::vector<Operand> sources;
    // The value of float i of the destination, d being its former values, by the rules of the flex or the strict entry.
    std::function<float(const float* d, const float* const* s, size_t i, size_t n, bool strict)> model;
    uint32_t fixed_length = 0; // of operations on blocks, which may overlap anyhow
};
inline std::ostream& operator<<(std::ostream& out, const Operation& op) { return out << op.flex_name; }
const std::vector<Operation>& operations();

#define KORLA_CALL(f, arguments)                                                                                       \
    [](KORLA_UNUSED float* d, KORLA_UNUSED const float* const* s, KORLA_UNUSED uint32_t n) { f arguments; }
#define KORLA_UNUSED [[maybe_unused]]
#define KORLA_OPERATION(flex_entry, strict_entry, arguments, floats, sources, ...)                                     \
    Operation {                                                                                                        \
#        flex_entry, #        strict_entry, KORLA_CALL(flex_entry, arguments), KORLA_CALL(strict_entry, arguments),    \
            floats, sources,                                                                                           \
            [](KORLA_UNUSED const float* d, KORLA_UNUSED const float* const* s, KORLA_UNUSED size_t i,                 \
               KORLA_UNUSED size_t n, KORLA_UNUSED bool strict) -> float { return __VA_ARGS__; }                       \
    }

// Numbers of many sizes, one in so many of them special.
inline std::vector<float> awkward_values(size_t n, uint64_t seed, uint32_t one_in) {
    static const float special[] = {0.0f, -0.0f, 1e-41f, -1e-45f, infinity, -infinity, nan_value, 3e38f, 1.0f, -1e-38f};
    Random random(seed);
    std::vector<float> v(n);
    for (float& x : v)
        x = random.bits() % one_in == 0 ? special[random.bits() % 10]
                                        : std::ldexp(random.uniform(), static_cast<int>(random.bits() % 24) - 12);
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
        std::vector<std::vector<float>> x;
        std::vector<std::unique_ptr<GuardedBuffer<float>>> in;
        std::vector<const float*> s;
        for (const Operand& operand : op.sources) {
            x.push_back(awkward_values(operand.size(n), 100 * n + 10 * variant + x.size(), variant % 2 ? 2 : 16));
            in.push_back(std::make_unique<GuardedBuffer<float>>(x.back(), strict ? 0 : (3 * variant + x.size()) % 8));
            s.push_back(in.back()->data());
        }
        const auto before = awkward_values(op.floats * n, n + 99, 16);
        std::vector<float> expected(before.size());
        for (size_t i = 0; i < expected.size(); i++)
            expected[i] = op.model(before.data(), s.data(), i, n, strict);

        constexpr size_t margin = 80;
        GuardedBuffer<float> out(before, strict ? 0 : variant), both(2 * margin + 16 * n);
        float* d = out.data();
        if (overlapped >= 0) {
            float* const source = both.data() + margin;
            std::copy(x[overlapped].begin(), x[overlapped].end(), source);
            s[overlapped] = source, d = source + offset;
        }
        (strict ? op.strict : op.flex)(d, s.data(), n);
        ASSERT_TRUE(bit_equal(d, expected, expected.size()));
        for (size_t j = 0; j < in.size(); j++)
            ASSERT_TRUE(bit_equal(in[j]->data(), x[j], x[j].size())) << "source " << j << " changed";
        ASSERT_TRUE(out.intact());
    }
    std::vector<uint32_t> lengths(std::vector<uint32_t> all, uint32_t up_to) {
        for (uint32_t n = 0; n <= up_to; n++)
            all.push_back(n);
        return op.fixed_length ? std::vector<uint32_t>{op.fixed_length} : all;
    }
};

TEST_P(ElementWise, GivesTheStatedBitsAtEveryLengthAndAlignment) {
    for (uint32_t n : lengths({63, 64, 65, 100, 257, 1020, 1021}, 40))
        for (size_t variant = 0; variant < 8; variant++)
            for (bool strict : {false, true})
                if (!strict || n % 4 == 0) {
                    ASSERT_NO_FATAL_FAILURE(check(strict, n, variant));
                }
}

// At every distance for which one order of processing never writes what it still has to read.
TEST_P(ElementWise, DestinationMayOverlapASource) {
    for (size_t j = 0; j < op.sources.size(); j++)
        for (uint32_t n : lengths({12, 16, 19, 23, 31, 40, 65, 150}, 9))
            for (long offset = -67; offset <= 67; offset++) {
                const long wider = static_cast<long>(op.floats) - static_cast<long>(op.sources[j].floats);
                if (!op.sources[j].may_overlap || (wider * offset < 0 && !op.fixed_length))
                    continue;
                ASSERT_NO_FATAL_FAILURE(check(false, n, 0, static_cast<int>(j), offset));
                if (offset == 0 && wider == 0 && n % 4 == 0) {
                    ASSERT_NO_FATAL_FAILURE(check(true, n, 0, static_cast<int>(j), offset));
                }
            }
}

INSTANTIATE_TEST_SUITE_P(Family, ElementWise, ::testing::ValuesIn(operations()),
                         [](const auto& info) { return info.param.strict_name + "_" + std::to_string(info.index); });

// The names in the tables and those of members with tests of their own.
template <class... Tables>
std::set<std::string> names_of(std::set<std::string> names, const Tables&... tables) {
    auto add = [&](const auto& table) {
        for (const auto& row : table)
            names.insert({row.flex_name, row.strict_name});
    };
    (add(tables), ...);
    return names;
}

} // namespace korla_test
