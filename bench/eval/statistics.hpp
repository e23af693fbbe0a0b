#ifndef VELDAN_EVAL_STATISTICS_HPP
#define VELDAN_EVAL_STATISTICS_HPP

#include <optional>
#include <vector>

namespace veldan::eval {

/** 0 when there are no values. */
double mean(const std::vector<double>& values);

/** The value below which this share of the values lies, between neighbours in proportion; 0 when there are none. */
double quantile(std::vector<double> values, double share);
double median(const std::vector<double>& values);

/** Place of each value in the order of all, from 1; equal values share the mean of their places. */
std::vector<double> ranks(const std::vector<double>& values);

/** Spearman's rank correlation of pairs; nothing when there are fewer than two, or when one side never changes. */
std::optional<double> rankCorrelation(const std::vector<double>& a, const std::vector<double>& b);

/** How often a value of the first list is larger than one of the second, over all pairs; equal ones count half. */
std::optional<double> areaUnderCurve(const std::vector<double>& larger, const std::vector<double>& smaller);

} // namespace veldan::eval

#endif
