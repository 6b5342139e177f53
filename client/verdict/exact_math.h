// Functions of real numbers whose results are the same to the last bit in every build. Those of the standard
// library may differ between platforms; these use nothing but additions, multiplications and divisions.
#pragma once

#include <bit>
#include <cstdint>

namespace tvr {

// The natural logarithm of a number of at least 1.
constexpr double exact_log(double x) noexcept {
    constexpr double ln2 = 0.693147180559945309417232121458;
    double powers = 0;
    for (; x > 1.5; x /= 2)
        powers += 1;
    // 2 artanh((x - 1) / (x + 1)), with x in 0.75 to 1.5
    const double t = (x - 1) / (x + 1);
    const double square = t * t;
    double sum = 0;
    for (int i = 25; i > 0; i -= 2)
        sum = sum * square + 1.0 / i;
    return powers * ln2 + 2 * t * sum;
}

// e to the power x, for x in -700 to 700.
constexpr double exact_exp(double x) noexcept {
    constexpr double ln2 = 0.693147180559945309417232121458;
    const double scaled = x / ln2 + (x < 0 ? -0.5 : 0.5);
    const auto power = static_cast<std::int64_t>(scaled);
    const double rest = x - static_cast<double>(power) * ln2;
    double sum = 1;
    for (int i = 14; i > 0; --i)
        sum = 1 + sum * rest / i;
    return sum * std::bit_cast<double>(static_cast<std::uint64_t>(power + 1023) << 52);
}

// The probability whose logit is x: 0 to 1.
constexpr double exact_logistic(double x) noexcept {
    if (x < -700)
        return 0;
    return x > 700 ? 1 : 1 / (1 + exact_exp(-x));
}

} // namespace tvr
