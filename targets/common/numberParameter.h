// Whole-number parameters of the shipped targets (sizes, counts, milliseconds).
#pragma once

#include <string>

#include <vexlor/vexlor_target.h>

// The parameter `key` as a decimal number from `low` to `high`, or `fallback` when it is missing
// or empty. Throws std::invalid_argument naming the key, the value and the range.
long long numberParameter(const CLogTargetParameters& parameters, const std::string& key, long long fallback,
                          long long low, long long high);

// The parameter `key` as a byte count: digits with an optional K, M or G (powers of 1024), from
// `low` to `high`, or `fallback` when it is missing or empty. Throws like numberParameter.
unsigned long long byteCountParameter(const CLogTargetParameters& parameters, const std::string& key,
                                      unsigned long long fallback, unsigned long long low, unsigned long long high);
