// What the programs of this folder print: rows of one Markdown table.
#pragma once

#include <string>
#include <vector>

// One row. measured carries its unit; ratio and target are empty where there is none.
void print_row(const std::string& what, const std::string& measured, const std::string& ratio = "",
               const std::string& target = "");

// The median, and the value below which this share (0 to 1) lies. values must not be empty.
double median(std::vector<double> values);
double quantile(std::vector<double> values, double share);

// With so many decimals.
std::string number(double value, int decimals = 1);

// Of two values, with two decimals.
std::string ratio_of(double value, double reference);

// The median of the ratios of what was measured in the same turn.
std::string ratio_of(const std::vector<double>& values, const std::vector<double>& references);
