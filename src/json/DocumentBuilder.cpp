#include "json/DocumentBuilder.h"

#include <algorithm>
#include <bitset>
#include <utility>

namespace json {

// Few documents have more: one allocation is enough for each list.
DocumentBuilder::DocumentBuilder() {
  open_.reserve(8);
  pieces_.reserve(64);
}

// Tells the names of one object apart that people give: mostly by the length and the outer letters.
std::size_t DocumentBuilder::hashOf(std::string_view name) {
  const std::size_t first = static_cast<unsigned char>(name.front());
  const std::size_t last = static_cast<unsigned char>(name.back());
  return (5 * name.size() + 3 * first + last) % hashes;
}

Name* DocumentBuilder::nameOf(std::string_view text) {
  if (chunkOfRecentNames_ != memory_.chunkNumber()) {
    recentNames_.fill(nullptr);
    chunkOfRecentNames_ = memory_.chunkNumber();
  }
  Name*& recent = recentNames_[hashOf(text)];
  if (recent != nullptr && recent->text() == text) {
    memory_.countAgain();
    return recent;
  }
  const Block block = memory_.allocate(sizeWithBytes<Name>(text));
  Name* made = makeWithBytes<Name>(block, text);
  if (block.place != aloneInMemory && chunkOfRecentNames_ == memory_.chunkNumber()) recent = made;
  return made;
}

jsObject* DocumentBuilder::close() {
  const Open closed = open_.back();
  if (closed.kind == JsonKind::object && hasName()) {
    BlockRelease().drop(static_cast<Name*>(pieces_.back())->block());
    pieces_.pop_back();
  }
  jsObject* made = closed.kind == JsonKind::object ? closeObject(closed.firstPiece) : closeArray(closed.firstPiece);
  pieces_.resize(closed.firstPiece);
  open_.pop_back();
  return made;
}

jsObject* DocumentBuilder::closeArray(std::size_t firstPiece) {
  const std::size_t capacity = std::max<std::size_t>(pieces_.size() - firstPiece, 1);
  auto* array = makeWithList<ArrayValue>(memory_.allocate(sizeWithList<ArrayValue>(capacity)), capacity);
  for (std::size_t piece = firstPiece; piece < pieces_.size(); ++piece) {
    array->values[array->count++] = static_cast<jsObject*>(pieces_[piece]);
  }
  return array;
}

// Most objects have no repeated name, and the hash of most names is new: these are not searched for. Without that
// shortcut, parsing a request takes 8 % more instructions.
jsObject* DocumentBuilder::closeObject(std::size_t firstPiece) {
  const std::size_t capacity = std::max<std::size_t>((pieces_.size() - firstPiece) / 2, 1);
  auto* object = makeWithList<ObjectValue>(memory_.allocate(sizeWithList<ObjectValue>(capacity)), capacity);
  std::bitset<hashes> seenHashes;
  for (std::size_t piece = firstPiece; piece < pieces_.size(); piece += 2) {
    auto* name = static_cast<Name*>(pieces_[piece]);
    auto* value = static_cast<jsObject*>(pieces_[piece + 1]);
    const std::size_t hash = hashOf(name->text());
    const std::ptrdiff_t position = seenHashes[hash] ? object->find(name->text()) : notFound;
    seenHashes[hash] = true;
    if (position == notFound) {
      object->add(name, value);
    } else {
      BlockRelease().drop(name->block());
      release(std::exchange(object->values[position], value));
    }
  }
  return object;
}

void DocumentBuilder::clear() {
  BlockRelease blocks;
  for (; !open_.empty(); open_.pop_back()) {
    const Open& open = open_.back();
    for (std::size_t piece = open.firstPiece; piece < pieces_.size(); ++piece) {
      const bool isName = open.kind == JsonKind::object && (piece - open.firstPiece) % 2 == 0;
      if (isName) {
        blocks.drop(static_cast<Name*>(pieces_[piece])->block());
      } else {
        releaseInto(blocks, static_cast<jsObject*>(pieces_[piece]));
      }
    }
    pieces_.resize(open.firstPiece);
  }
}

}  // namespace json
