// The JSON texts the benchmarks feed to the converters: each command's usage
// sample and a maximal text with every list at its capacity in the record.
#pragma once

#include <string>
#include <vector>

/// One converter input: the record kind, a short name ("usage" or "max") and
/// the JSON text.
struct BenchInput {
    std::string kind;
    std::string name;
    std::string text;
};

/// Every converter's inputs, in a fixed order. Each text converts with 0 (the
/// benchmarks check that before timing anything).
const std::vector<BenchInput> &BenchConverterInputs();
