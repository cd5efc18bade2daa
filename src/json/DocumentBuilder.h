// DocumentBuilder: builds a tree of values from the inside out, as a text gives them.
//
//   DocumentBuilder builder;
//   builder.open(JsonKind::object);
//   builder.takeName("port");
//   builder.add(builder.makeNumber(8245));
//   jsObject* object = builder.close();      // {"port":8245}
//   builder.seal();
//
// The tree is an ordinary one, with json::release() and every function of JsonModel.h. Only its memory differs: values
// and names lie one behind the other in chunks (see Chunks.h), a container and its list are one block, and most equal
// names in one chunk are one name that is counted several times.
//
// What it gained when it was made (bench/json_libraries, our speed divided by that of RapidJSON, with one block for
// each value, name and list, and in square brackets with names that are not shared): parsing a request 1.13 (0.67),
// objects 0.81 (0.41, [0.68]), integers 0.97 (0.43), doubles 0.84 (0.62). docs/performance.md has the present figures.
//
// Ownership: the caller owns what make...() and close() return until it gives it to add().
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "json/Chunks.h"
#include "json/JsonModel.h"
#include "json/JsonRecords.h"

namespace json {

class DocumentBuilder {
 public:
  DocumentBuilder();
  ~DocumentBuilder() { clear(); }
  DocumentBuilder(const DocumentBuilder&) = delete;
  DocumentBuilder& operator=(const DocumentBuilder&) = delete;

  // The kind of the innermost open container, or `invalid` if none is open.
  JsonKind openKind() const { return open_.empty() ? JsonKind::invalid : open_.back().kind; }
  // Returns true if the open object has a name that waits for its value.
  bool hasName() const { return (pieces_.size() - open_.back().firstPiece) % 2 != 0; }

  // These return what json::makeNumber and json::makeString do.
  jsObject* makeNumber(double value);
  jsObject* makeString(std::string_view text);

  void open(JsonKind kind) { open_.push_back({pieces_.size(), kind}); }
  // Takes the name of the next value of the open object. An empty name is no name.
  void takeName(std::string_view name);
  // Adds a value to the open array, or under its name to the open object.
  void add(jsObject* value) { pieces_.push_back(value); }
  // Ends the innermost open container and returns it. A name without a value is dropped. Of members of the same name
  // the first position and the last value are kept. The container around it does not have it yet.
  jsObject* close();

  // Drops the open containers and releases what is in them.
  void clear();
  // Must be called before another thread may use a value. Later values and names are in other chunks.
  void seal() {
    memory_.seal();
    chunkOfRecentNames_ = 0;  // their chunk may be freed from now on
  }

 private:
  struct Open {
    std::size_t firstPiece;
    JsonKind kind;
  };

  static std::size_t hashOf(std::string_view name);
  Name* nameOf(std::string_view text);
  jsObject* closeArray(std::size_t firstPiece);
  jsObject* closeObject(std::size_t firstPiece);

  Chunks memory_;
  std::vector<Open> open_;     // the innermost container last
  std::vector<void*> pieces_;  // of all open containers: the elements of an array, a name and a value in turns

  // The last name of each hash. All of them lie in chunk number chunkOfRecentNames_ and are used only while that chunk
  // is open. Chunks are numbered from 1, so 0 means no chunk.
  static constexpr std::size_t hashes = 64;
  std::array<Name*, hashes> recentNames_{};
  std::size_t chunkOfRecentNames_ = 0;
};

inline jsObject* DocumentBuilder::makeNumber(double value) {
  if (jsObject* shared = sharedNumber(value)) return shared;
  const Block block = memory_.allocate(sizeof(NumberValue));
  return new (block.start) NumberValue(value, block.place);
}

inline jsObject* DocumentBuilder::makeString(std::string_view text) {
  if (text.empty()) return json::makeString(text);
  return makeWithBytes<StringValue>(memory_.allocate(sizeWithBytes<StringValue>(text)), text);
}

inline void DocumentBuilder::takeName(std::string_view name) {
  if (!name.empty()) pieces_.push_back(nameOf(name));
}

}  // namespace json
