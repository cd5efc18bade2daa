// How the cost of the JSON library grows with the document. Each time should grow in proportion to the number of
// members; `json_bench` prints the order of growth that it measured for each family, which should be "N".
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "json/JsonModel.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"

namespace {

std::vector<std::string> namesOf(std::int64_t count) {
  std::vector<std::string> names;
  for (std::int64_t i = 0; i < count; ++i) names.push_back("member-" + std::to_string(i));
  return names;
}

jsObject* objectOf(const std::vector<std::string>& names) {
  jsObject* object = json::makeObject();
  for (const std::string& name : names) json::setMember(object, name, json::makeNumber(7));
  return object;
}

void BuildObject(benchmark::State& state) {
  const std::vector<std::string> names = namesOf(state.range(0));
  for (auto _ : state) ScopedJson object(objectOf(names));
  state.SetComplexityN(state.range(0));
}

void FindEveryMember(benchmark::State& state) {
  const std::vector<std::string> names = namesOf(state.range(0));
  const ScopedJson object(objectOf(names));
  for (auto _ : state) {
    for (const std::string& name : names) benchmark::DoNotOptimize(json::member(object.get(), name));
  }
  state.SetComplexityN(state.range(0));
}

void ParseObject(benchmark::State& state) {
  const ScopedJson object(objectOf(namesOf(state.range(0))));
  std::string text;
  json::write(text, object.get());
  for (auto _ : state) ScopedJson parsed(json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size())));
  state.SetComplexityN(state.range(0));
}

void WriteObject(benchmark::State& state) {
  const ScopedJson object(objectOf(namesOf(state.range(0))));
  for (auto _ : state) {
    std::string text;
    benchmark::DoNotOptimize(json::write(text, object.get()));
  }
  state.SetComplexityN(state.range(0));
}

}  // namespace

BENCHMARK(BuildObject)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)->Complexity();
BENCHMARK(FindEveryMember)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)->Complexity();
BENCHMARK(ParseObject)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)->Complexity();
BENCHMARK(WriteObject)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)->Complexity();
BENCHMARK_MAIN();
