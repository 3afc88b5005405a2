// Generic tests of element-wise vector operations: a table row says how a pair is called and what one element is.
//
// Include it once in a test, define `element_wise_operations()` and every row is tested at all lengths, alignments and
// overlaps.
#pragma once

#include <algorithm>
#include <fstream>
#include <functional>
#include <limits>
#include <set>
#include <string>

#include "guarded_buffer.h"
#include "signals.h"

namespace korla_test {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

struct Operand {
    size_t floats;      // per element
    size_t stacked = 0; // when not 0: so many complex vectors one behind the other, each rounded up to 4 samples
    bool may_overlap = true;
    size_t size(size_t n) const { return stacked ? stacked * 2 * ((n + 3) / 4 * 4) : floats * n; }
};
const Operand real_operand{1}, complex_operand{2};
inline Operand apart(size_t floats) { return {floats, 0, false}; }
inline Operand stack_of(size_t count) { return {2, count, false}; }

// The n destination elements are `destination` floats wide; two destinations stand one behind the other.
struct ElementWise {
    using Run = std::function<void(float* d, const float* const* s, uint32_t n)>;
    // Writes element k of the destination, which holds its former values when the operation reads it.
    using Model = std::function<void(float* d, const float* const* s, size_t k, size_t n)>;
    std::string flex_name, strict_name;
    Run flex, strict;
    size_t destination;
    std::vector<Operand> sources;
    Model model;
    Model strict_model = {}; // when the entries round differently
    bool reads_destination = false;
};
inline std::ostream& operator<<(std::ostream& out, const ElementWise& op) { return out << op.flex_name; }
#define KORLA_ENTRIES(flex, strict, arguments)                                                                         \
#    flex, #    strict,                                                                                                \
        []([[maybe_unused]] float* d, [[maybe_unused]] const float* const* s,                                          \
           uint32_t n) { flex arguments; }, []([[maybe_unused]] float* d, [[maybe_unused]] const float* const* s,      \
                                               uint32_t n) { strict arguments; }

const std::vector<ElementWise>& element_wise_operations();

// Normal numbers of many sizes with everything special between them.
inline std::vector<float> awkward_values(size_t n, uint64_t seed) {
    static const float special[] = {0.0f, -0.0f, 1e-41f, -1e-45f, inf, -inf, nan, 3e38f, 1.0f, -1e-38f};
    Random random(seed);
    std::vector<float> v(n);
    for (float& x : v)
        x = random.bits() % 8 == 0 ? special[random.bits() % 10]
                                   : std::ldexp(random.uniform(), static_cast<int>(random.bits() % 24) - 12);
    return v;
}

struct Case {
    const ElementWise& op;
    size_t n;
    std::vector<std::vector<float>> sources;
    std::vector<float> destination;
    Case(const ElementWise& op, size_t n) : op(op), n(n), destination(awkward_values(op.destination * n, n + 99)) {
        for (size_t j = 0; j < op.sources.size(); j++)
            sources.push_back(awkward_values(op.sources[j].size(n), 10 * n + j));
    }
    std::vector<float> expected(bool strict = false) const {
        std::vector<const float*> s;
        for (const auto& source : sources)
            s.push_back(source.data());
        std::vector<float> d = op.reads_destination ? destination : std::vector<float>(destination.size());
        for (size_t k = 0; k < n; k++)
            (strict && op.strict_model ? op.strict_model : op.model)(d.data(), s.data(), k, n);
        return d;
    }
};

class VectorOperation : public ::testing::TestWithParam<ElementWise> {
protected:
    void run(bool strict, size_t n, size_t misalignment) {
        const auto& op = GetParam();
        const Case c(op, n);
        std::vector<std::unique_ptr<GuardedBuffer<float>>> in;
        std::vector<const float*> s;
        for (size_t j = 0; j < c.sources.size(); j++) {
            in.push_back(std::make_unique<GuardedBuffer<float>>(c.sources[j], strict ? 0 : (3 * misalignment + j) % 8));
            s.push_back(in[j]->data());
        }
        GuardedBuffer<float> out(c.destination, misalignment);
        (strict ? op.strict : op.flex)(out.data(), s.data(), static_cast<uint32_t>(n));
        ASSERT_TRUE(bit_equal(out.data(), c.expected(strict), out.size())) << "n = " << n << ", " << misalignment;
        for (size_t j = 0; j < in.size(); j++)
            ASSERT_TRUE(bit_equal(in[j]->data(), c.sources[j], in[j]->size())) << "source " << j << " changed";
        ASSERT_TRUE(out.intact()) << "n = " << n << ", " << misalignment;
    }
};

TEST_P(VectorOperation, FlexGivesTheStatedBitsAtEveryLengthAndAlignment) {
    for (size_t n = 0; n <= 40; n++)
        for (size_t misalignment = 0; misalignment < 8; misalignment++)
            ASSERT_NO_FATAL_FAILURE(run(false, n, misalignment));
    for (size_t n : {63, 64, 65, 100, 257, 1021})
        ASSERT_NO_FATAL_FAILURE(run(false, n, n % 8));
}

TEST_P(VectorOperation, StrictGivesTheStatedBits) {
    for (size_t n = 0; n <= 80; n += 4)
        ASSERT_NO_FATAL_FAILURE(run(true, n, 0));
    ASSERT_NO_FATAL_FAILURE(run(true, 1020, 0));
}

// One order of processing, element by element, that never writes what it still has to read.
bool an_order_exists(size_t n, long destination_floats, long source_floats, long offset) {
    auto safe = [&](auto later) {
        for (long k = 0; k < static_cast<long>(n); k++)
            for (long w = offset + k * destination_floats; w < offset + (k + 1) * destination_floats; w++)
                if (w >= 0 && w < static_cast<long>(n) * source_floats && later(w / source_floats, k))
                    return false;
        return true;
    };
    return safe([](long read, long k) { return read > k; }) || safe([](long read, long k) { return read < k; });
}

TEST_P(VectorOperation, FlexDestinationMayOverlapASource) {
    const auto& op = GetParam();
    for (size_t j = 0; j < op.sources.size(); j++) {
        if (!op.sources[j].may_overlap || op.reads_destination)
            continue;
        for (size_t n : {1, 2, 3, 4, 5, 7, 8, 9, 12, 16, 19, 23, 31, 40, 65, 150}) {
            const Case c(op, n);
            for (long offset :
                 {-67, -40, -33, -16, -9, -8, -7, -5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 5, 6, 8, 9, 11, 17, 33, 64}) {
                if (!an_order_exists(n, static_cast<long>(op.destination), static_cast<long>(op.sources[j].floats),
                                     offset))
                    continue;
                GuardedBuffer<float> both(c.sources[j].size() + c.destination.size() + 2 * 80);
                float* source = both.data() + 80;
                std::copy(c.sources[j].begin(), c.sources[j].end(), source);
                std::vector<const float*> s;
                for (const auto& other : c.sources)
                    s.push_back(other.data());
                s[j] = source;
                op.flex(source + offset, s.data(), static_cast<uint32_t>(n));
                ASSERT_TRUE(bit_equal(source + offset, c.expected(), c.destination.size()))
                    << "source " << j << ", n = " << n << ", offset " << offset;
            }
        }
    }
}

TEST_P(VectorOperation, DestinationMayBeEverySourceAtOnce) {
    const auto& op = GetParam();
    for (const auto& source : op.sources)
        if (!source.may_overlap || source.floats != op.destination)
            return;
    for (bool strict : {false, true})
        for (size_t n : {4, 8, 12, 28, 64, 68}) {
            Case c(op, n);
            std::fill(c.sources.begin(), c.sources.end(), c.destination);
            GuardedBuffer<float> both(c.destination);
            const std::vector<const float*> s(c.sources.size(), both.data());
            (strict ? op.strict : op.flex)(both.data(), s.data(), static_cast<uint32_t>(n));
            ASSERT_TRUE(bit_equal(both.data(), c.expected(strict), both.size())) << n;
        }
}

INSTANTIATE_TEST_SUITE_P(Family, VectorOperation, ::testing::ValuesIn(element_wise_operations()),
                         [](const auto& info) { return info.param.flex_name; });

// The functions that an export list of the project names.
inline std::set<std::string> exported_functions(const std::string& list) {
    std::ifstream file(KORLA_EXPORTS_DIR "/" + list);
    EXPECT_TRUE(file.is_open()) << list;
    std::set<std::string> names;
    std::string name, kind;
    for (std::string line; std::getline(file, line);)
        if (auto space = line.find(' '); line[0] != '#' && space != std::string::npos && line.substr(space + 1) == "F")
            names.insert(line.substr(0, space));
    return names;
}

template <class... Tables>
std::set<std::string> names_of(const Tables&... tables) {
    std::set<std::string> names;
    auto add = [&](const auto& table) {
        for (const auto& row : table) {
            names.insert(row.flex_name);
            names.insert(row.strict_name);
        }
    };
    (add(tables), ...);
    return names;
}

} // namespace korla_test
