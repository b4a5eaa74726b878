/* SPDX-License-Identifier: MIT */
// What a quantity that was looked at again and again comes to.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kel::test {

/// Values over time. What a program needs until everything has its size is in the first half, and so only the second
/// half is judged.
class Trend {
 public:
  void add(double seconds, double value) { mSamples.push_back({seconds, value}); }

  bool empty() const { return mSamples.empty(); }
  double most() const {
    return std::max_element(mSamples.begin(), mSamples.end(), [](auto a, auto b) { return a.value < b.value; })->value;
  }

  /// By how much it grows in a second: the slope of the line with the least squares through the second half.
  double slope() const {
    const std::size_t from = mSamples.size() / 2;
    const auto count = static_cast<double>(mSamples.size() - from);
    double time = 0, value = 0;
    for (std::size_t i = from; i < mSamples.size(); ++i) {
      time += mSamples[i].seconds / count;
      value += mSamples[i].value / count;
    }
    double products = 0, squares = 0;
    for (std::size_t i = from; i < mSamples.size(); ++i) {
      products += (mSamples[i].seconds - time) * (mSamples[i].value - value);
      squares += (mSamples[i].seconds - time) * (mSamples[i].seconds - time);
    }
    return squares == 0 ? 0 : products / squares;
  }

  /// By how much it grew in the second half, along that line.
  double growth() const {
    return mSamples.empty() ? 0 : slope() * (mSamples.back().seconds - mSamples[mSamples.size() / 2].seconds);
  }

 private:
  struct Sample {
    double seconds;
    double value;
  };

  std::vector<Sample> mSamples;
};

}  // namespace kel::test
