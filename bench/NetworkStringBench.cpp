// Formatting a network string against copying the same bytes.
#include "core/KTFormatNetworkString.h"

#include <benchmark/benchmark.h>
#include <cstring>

using namespace tessel;

namespace {

std::string plainFormat()
{
    std::string text;
    while (text.size() < 4096)
        text += "A message body of ordinary words, with punctuation and digits 0123456789. ";
    text.resize(4096);
    return text;
}

std::string placeholderFormat()
{
    std::string text;
    for (int i = 0; i < 64; ++i)
        text += (i % 2 ? "%@ said something in reply; " : "and %" + std::to_string(i / 2 + 1) + "$@ too. ");
    return text;
}

std::vector<Value> arguments()
{
    std::vector<Value> values;
    for (int i = 0; i < 64; ++i)
        values.emplace_back("name" + std::to_string(i));
    return values;
}

void BM_CopyNetworkString4K(benchmark::State& state)
{
    auto format = plainFormat();
    for (auto _ : state) {
        std::string copy(format.data(), format.size());
        benchmark::DoNotOptimize(copy.data());
    }
}

void BM_FormatNetworkString4K(benchmark::State& state)
{
    auto format = plainFormat();
    std::vector<Value> none;
    for (auto _ : state)
        benchmark::DoNotOptimize(KTFormatNetworkString(std::string_view(format), none));
}

void BM_FormatNetworkString64Placeholders(benchmark::State& state)
{
    auto format = placeholderFormat();
    auto values = arguments();
    for (auto _ : state)
        benchmark::DoNotOptimize(KTFormatNetworkString(std::string_view(format), values));
}

BENCHMARK(BM_CopyNetworkString4K);
BENCHMARK(BM_FormatNetworkString4K);
BENCHMARK(BM_FormatNetworkString64Placeholders);

} // namespace
