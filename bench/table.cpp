#include "table.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>

void print_row(const std::string& what, const std::string& measured, const std::string& ratio,
               const std::string& target) {
  std::printf("| %s | %s | %s | %s |\n", what.c_str(), measured.c_str(), ratio.c_str(), target.c_str());
  std::fflush(stdout);
}

double quantile(std::vector<double> values, double share) {
  const auto place = std::min(values.size() - 1, static_cast<std::size_t>(share * static_cast<double>(values.size())));
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(place);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

std::string number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string ratio_of(double value, double reference) { return number(value / reference, 2); }

std::string ratio_of(const std::vector<double>& values, const std::vector<double>& references) {
  std::vector<double> ratios;
  std::ranges::transform(values, references, std::back_inserter(ratios), std::divides());
  return number(median(ratios), 2);
}
