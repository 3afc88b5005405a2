// Rows of a filter bank, compared so that a failure says which slot and which of its bands or samples are wrong.
#pragma once

#include "signals.h"

#include <sstream>
#include <string>

namespace korla_test {

// `what` names the bank, its direction and kind. A row is a slot: `width` bands or samples of `parts` floats, 2 for
// complex bands. Every float is within the tolerance; without one, the bits are the same.
template <class Actual, class Expected>
void expect_rows(const std::string& what, size_t width, size_t parts, const Actual& actual, const Expected& expected,
                 double tolerance = 0.0) {
    ASSERT_EQ(actual.size(), expected.size()) << what;
    for (size_t row = 0; row < actual.size(); row += width * parts) {
        std::vector<size_t> wrong;
        std::ostringstream first;
        for (size_t k = 0; k < width; k++)
            for (size_t i = row + k * parts; i < row + (k + 1) * parts && (wrong.empty() || wrong.back() != k); i++)
                if (tolerance == 0.0 ? !same_bits(actual[i], static_cast<float>(expected[i]))
                                     : !(std::abs(actual[i] - expected[i]) <= tolerance)) { // NaN is wrong
                    if (wrong.empty())
                        first << actual[i] << ", expected " << expected[i];
                    wrong.push_back(k);
                }
        if (!wrong.empty()) {
            ADD_FAILURE() << what << ", slot " << row / (width * parts) << ": " << wrong.size() << " of " << width
                          << (parts == 2 ? " complex bands" : " values") << " are wrong, " << wrong.front() << " to "
                          << wrong.back() << "; " << wrong.front() << " is " << first.str();
            return;
        }
    }
}

} // namespace korla_test
