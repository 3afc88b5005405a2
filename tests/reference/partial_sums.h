// The order in which the sums of the library accumulate.
#pragma once

#include <cstddef>
#include <vector>

namespace korla_test {

// Element i goes to sum i mod m by s = step(i, s); then sum j takes in sum j + m/2, then j + m/4, and so on.
template <class T, class Step> T partial_sums(size_t m, size_t n, Step step) {
    std::vector<T> s(m, T{0});
    for (size_t i = 0; i < n; i++)
        s[i % m] = step(i, s[i % m]);
    for (size_t half = m / 2; half > 0; half /= 2)
        for (size_t j = 0; j < half; j++)
            s[j] += s[j + half];
    return s[0];
}

} // namespace korla_test
