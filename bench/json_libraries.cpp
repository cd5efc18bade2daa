// How fast our JSON library parses (and releases) and prints, compared with the libraries that others use.
//
//   json_libraries [--brief] [DOCUMENT]     # only the documents whose name starts with DOCUMENT
//
// Speeds are megabytes of the parsed text per second, for printing too, because each library prints the same tree
// differently: ours prints doubles as "%f", RapidJSON with the fewest digits that read back the same, and json-c copies
// the text that it kept when it parsed the double. RapidJSON parses with its default flags, which may miss the nearest
// double; ours never misses it. cJSON and RapidJSON do not check for repeated member names, so they have no bar for the
// large object.
//
// The libraries take turns in each round and the best round of each counts, so that a busy machine slows down all of
// them equally. A ratio is our speed divided by theirs. With --brief the documents are small and the figures mean
// nothing. The program says which libraries it leaves out because their Debian packages are not installed.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "json/JsonModel.h"
#include "json/JsonParser.h"
#include "json/JsonWriter.h"

#if __has_include(<cjson/cJSON.h>)
#include <cjson/cJSON.h>
#endif
#if __has_include(<json-c/json.h>)
#include <json-c/json.h>
#endif
#if __has_include(<nlohmann/json.hpp>)
#include <nlohmann/json.hpp>
#endif
#if __has_include(<rapidjson/document.h>)
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace {

// ---- The libraries ----

// How to use a library. `parse` returns null if it refuses the text. `print` returns the number of bytes printed.
struct Library {
  const char* name;
  double parseBar;  // what our speed divided by theirs should be: more than `ahead`, or at least `closeBehind`
  double printBar;
  bool checksRepeatedNames;  // when it parses an object
  void* (*parse)(const std::string& text);
  void (*release)(void* tree);
  std::size_t (*print)(void* tree);
};

constexpr double ahead = 1.0;
constexpr double closeBehind = 0.8;

const Library libraries[] = {
    {"ravctl", 0, 0, true,
     [](const std::string& text) -> void* {
       return json::parse(text.data(), static_cast<std::ptrdiff_t>(text.size()));
     },
     [](void* tree) { json::release(static_cast<jsObject*>(tree)); },
     [](void* tree) {
       std::string text;
       return json::write(text, static_cast<jsObject*>(tree)).size();
     }},
#if __has_include(<cjson/cJSON.h>)
    {"cJSON", ahead, ahead, false,
     [](const std::string& text) -> void* { return cJSON_ParseWithLength(text.data(), text.size()); },
     [](void* tree) { cJSON_Delete(static_cast<cJSON*>(tree)); },
     [](void* tree) {
       char* text = cJSON_PrintUnformatted(static_cast<cJSON*>(tree));
       const std::size_t size = std::strlen(text);
       cJSON_free(text);
       return size;
     }},
#endif
#if __has_include(<json-c/json.h>)
    {"json-c", ahead, ahead, true,
     [](const std::string& text) -> void* {
       json_tokener* tokener = json_tokener_new();
       json_object* tree = json_tokener_parse_ex(tokener, text.c_str(), static_cast<int>(text.size() + 1));
       json_tokener_free(tokener);
       return tree;
     },
     [](void* tree) { json_object_put(static_cast<json_object*>(tree)); },
     [](void* tree) {
       return std::strlen(json_object_to_json_string_ext(static_cast<json_object*>(tree), JSON_C_TO_STRING_PLAIN));
     }},
#endif
#if __has_include(<nlohmann/json.hpp>)
    {"nlohmann", ahead, ahead, true,
     [](const std::string& text) -> void* {
       auto* tree = new nlohmann::json(nlohmann::json::parse(text, nullptr, false));
       if (!tree->is_discarded()) return tree;
       delete tree;
       return nullptr;
     },
     [](void* tree) { delete static_cast<nlohmann::json*>(tree); },
     [](void* tree) { return static_cast<nlohmann::json*>(tree)->dump().size(); }},
#endif
#if __has_include(<rapidjson/document.h>)
    {"RapidJSON", closeBehind, ahead, false,
     [](const std::string& text) -> void* {
       auto* tree = new rapidjson::Document;
       tree->Parse(text.data(), text.size());
       if (!tree->HasParseError()) return tree;
       delete tree;
       return nullptr;
     },
     [](void* tree) { delete static_cast<rapidjson::Document*>(tree); },
     [](void* tree) -> std::size_t {
       rapidjson::StringBuffer text;
       rapidjson::Writer<rapidjson::StringBuffer> writer(text);
       static_cast<rapidjson::Document*>(tree)->Accept(writer);
       return text.GetSize();
     }},
#endif
};
constexpr std::size_t libraryCount = sizeof libraries / sizeof libraries[0];

void sayWhatIsMissing() {
#if !__has_include(<cjson/cJSON.h>)
  std::puts("  cJSON: not measured, libcjson-dev is not here");
#endif
#if !__has_include(<json-c/json.h>)
  std::puts("  json-c: not measured, libjson-c-dev is not here");
#endif
#if !__has_include(<nlohmann/json.hpp>)
  std::puts("  nlohmann: not measured, nlohmann-json3-dev is not here");
#endif
#if !__has_include(<rapidjson/document.h>)
  std::puts("  RapidJSON: not measured, rapidjson-dev is not here");
#endif
}

// ---- The documents ----

using Random = std::mt19937_64;

const char request[] =
    "{\"command\":\"profile create\",\"arguments\":{\"profile_name\":\"office in the "
    "north\",\"helmsor\":\"helm.example.org\","
    "\"network\":\"203.0.113.0/24\",\"log_level\":\"info\",\"port\":8245,\"retries\":3,\"activate\":true,"
    "\"quiet\":false,\"comment\":null,\"words\":[\"one\",\"two\",\"three and "
    "\\\"four\\\"\"],\"ratio\":0.75,\"limit\":120}}";

// An array of that size in bytes, whose elements `entry` returns.
template <class Entry>
std::string arrayOf(std::size_t size, Entry entry) {
  Random random(1);
  std::string text = "[";
  while (text.size() < size) {
    if (text.size() > 1) text += ',';
    text += entry(random);
  }
  return text += ']';
}

// An integer of one to ten digits.
std::string integer(Random& random) { return std::to_string((random() >> 33) >> (random() % 31)); }

// A double with 17 digits, which are enough to read back the same double.
std::string fraction(Random& random) {
  char digits[40];
  const int length =
      std::snprintf(digits, sizeof digits, "%.17g", std::uniform_real_distribution<double>(-1000, 1000)(random));
  return {digits, static_cast<std::size_t>(length)};
}

std::string smallObject(Random& random) {
  return "{\"id\":" + integer(random) + ",\"name\":\"profile-" + integer(random) +
         "\",\"active\":true,\"port\":" + std::to_string(random() % 65536) + ",\"comment\":null}";
}

// One object of that size in bytes.
std::string largeObject(std::size_t size) {
  std::string text = "{";
  for (std::size_t number = 0; text.size() < size; ++number) {
    text += (number == 0 ? "\"member-" : ",\"member-") + std::to_string(number) + "\":7";
  }
  return text += '}';
}

struct Document {
  std::string name;
  std::string text;
  std::size_t timesARound;
  bool hasManyNames = false;
};

std::vector<Document> documents(std::size_t size) {
  return {{"request of 300 bytes", request, size / 5000},
          {"objects", arrayOf(size, smallObject), 1},
          {"integers", arrayOf(size, integer), 1},
          {"doubles", arrayOf(size, fraction), 1},
          {"large object", largeObject(size / 5), 1, true}};
}

// ---- Measuring ----

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// The best times of one library for one document.
struct Times {
  double parse = std::numeric_limits<double>::max();
  double print = std::numeric_limits<double>::max();
};

double timeOfParsing(const Library& library, const Document& document) {
  const Clock::time_point start = Clock::now();
  for (std::size_t time = 0; time < document.timesARound; ++time) library.release(library.parse(document.text));
  return secondsSince(start) / static_cast<double>(document.timesARound);
}

double timeOfPrinting(const Library& library, void* tree, std::size_t times) {
  const Clock::time_point start = Clock::now();
  for (std::size_t time = 0; time < times; ++time) {
    if (library.print(tree) == 0) std::abort();
  }
  return secondsSince(start) / static_cast<double>(times);
}

std::vector<Times> measure(const Document& document, int rounds) {
  std::vector<Times> best(libraryCount);
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t at = 0; at < libraryCount; ++at) {
      const Library& library = libraries[at];
      best[at].parse = std::min(best[at].parse, timeOfParsing(library, document));
      void* tree = library.parse(document.text);
      if (tree == nullptr) {
        std::printf("  %s does not take this document\n", library.name);
        std::exit(1);
      }
      best[at].print = std::min(best[at].print, timeOfPrinting(library, tree, document.timesARound));
      library.release(tree);
    }
  }
  return best;
}

// The memory that the tree of a large document takes, in bytes, as the allocator counts it.
double memoryOf(const Library& library, const Document& document) {
  const auto used = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = used();
  void* tree = library.parse(document.text);
  const std::size_t after = used();
  library.release(tree);
  return static_cast<double>(after - before);
}

void reportMemory(const Document& document) {
  std::printf("  tree  %-20s", document.name.c_str());
  for (const Library& library : libraries) {
    std::printf("%s %s %.1f", &library == libraries ? "" : " |", library.name,
                memoryOf(library, document) / static_cast<double>(document.text.size()));
  }
  std::puts(" bytes of memory a byte of text");
}

// Prints one line: our speed, then the speed of each other library and the ratio. Returns the number of missed bars.
int report(const char* what, const Document& document, const std::vector<Times>& best, double Times::*time,
           double Library::*bar) {
  const double megabytes = static_cast<double>(document.text.size()) / 1e6;
  std::printf("  %-5s %-20s %7.1f MB/s", what, document.name.c_str(), megabytes / (best[0].*time));
  int missed = 0;
  for (std::size_t at = 1; at < libraryCount; ++at) {
    const double ratio = best[at].*time / (best[0].*time);
    const bool hasBar = !document.hasManyNames || libraries[at].checksRepeatedNames;
    const bool met = !hasBar || (libraries[at].*bar == ahead ? ratio > ahead : ratio >= libraries[at].*bar);
    missed += met ? 0 : 1;
    std::printf(" | %s %7.1f: %5.2f%s", libraries[at].name, megabytes / (best[at].*time), ratio, met ? "" : " missed");
  }
  std::puts("");
  return missed;
}

}  // namespace

int main(int count, char** words) {
  const bool brief = count > 1 && std::strcmp(words[1], "--brief") == 0;
  const std::string wanted = count > (brief ? 2 : 1) ? words[count - 1] : "";
  sayWhatIsMissing();
  int missed = 0;
  for (const Document& document : documents(brief ? 10000 : 10000000)) {
    if (document.name.compare(0, wanted.size(), wanted) != 0) continue;
    const std::vector<Times> best = measure(document, brief ? 1 : 7);
    missed += report("parse", document, best, &Times::parse, &Library::parseBar);
    missed += report("print", document, best, &Times::print, &Library::printBar);
    if (document.timesARound == 1) reportMemory(document);
  }
  std::printf("  bars (more than %.1f, of RapidJSON's parsing at least %.1f; best of rounds): %s\n", ahead, closeBehind,
              missed == 0 ? "met" : (std::to_string(missed) + " missed").c_str());
}
