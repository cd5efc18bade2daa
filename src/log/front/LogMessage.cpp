#include "log/front/LogMessage.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/text/FromBytes.h"

namespace BasicLog {
namespace {

// A text follows its length: one byte, or longMark and four bytes.
using LongLength = std::uint32_t;  // a text of 4 GiB or more is cut
constexpr unsigned char longMark = 0xFF;

constexpr std::size_t roomForParameters = 64;

std::uint64_t sizeWithLength(std::string_view text) {
  return std::uint64_t{text.size()} + (text.size() < longMark ? 1 : 1 + sizeof(LongLength));
}

// Where a size_t has 32 bits, a size that is too large becomes SIZE_MAX, so that the allocation fails instead of being
// too small.
std::size_t asMemorySize(std::uint64_t size) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(size, SIZE_MAX));
}

std::string_view textAt(const char* bytes) {
  const auto first = static_cast<unsigned char>(*bytes++);
  if (first != longMark) return {bytes, first};
  return {bytes + sizeof(LongLength), fromBytes<LongLength>(bytes)};
}

const char* endOf(std::string_view text) { return text.data() + text.size(); }

}  // namespace

std::unique_ptr<LogMessage> LogMessage::make(std::string_view file, std::string_view function, std::string_view logger,
                                             std::string_view text) {
  std::uint64_t size = sizeof(LogMessage) + roomForParameters;
  for (const std::string_view fixed : {file, function, logger, text}) size += sizeWithLength(fixed);
  const std::size_t memorySize = asMemorySize(size);
  void* const memory = ::operator new(memorySize);
  return std::unique_ptr<LogMessage>(new (memory)
                                         LogMessage(memorySize - sizeof(LogMessage), file, function, logger, text));
}

LogMessage& LogMessage::operator=(const LogMessage& other) {
  if (this == &other) return *this;
  level = other.level;
  isFromEmitter = other.isFromEmitter;
  created = other.created;
  (void)makeRoom(other.size_);
  std::memcpy(bytes(), other.bytes(), other.size_);
  size_ = other.size_;
  return *this;
}

void LogMessage::begin(std::string_view file, std::string_view function, std::string_view logger,
                       std::string_view text) {
  size_ = 0;
  for (const std::string_view fixed : {file, function, logger, text}) {  // in the order of Place
    (void)makeRoom(size_ + sizeWithLength(fixed));
    put(fixed);
  }
}

void LogMessage::add(std::string_view key, std::string_view value) {
  // The previous buffer is freed after both texts have been copied: they may lie in it.
  const std::unique_ptr<char[]> previous = makeRoom(size_ + sizeWithLength(key) + sizeWithLength(value));
  put(key);
  put(value);
}

std::vector<LogParameter> LogMessage::parameters() const {
  std::vector<LogParameter> all;
  Reader reader(*this);
  (void)reader.next();  // skips the text
  while (!reader.isAtEnd()) {
    const std::string_view key = reader.next();
    all.push_back({key, reader.next()});
  }
  return all;
}

const char* LogMessage::addressOf(Place place) const {
  const char* at = bytes();
  for (int before = static_cast<int>(place); before != 0; --before) at = endOf(textAt(at));
  return at;
}

std::string_view LogMessage::fixedText(Place place) const { return textAt(addressOf(place)); }

void LogMessage::put(std::string_view text) {
  text = text.substr(0, UINT32_MAX);
  char* const start = bytes() + size_;
  char* to = start;
  if (text.size() < longMark) {
    *to++ = static_cast<char>(text.size());
  } else {
    const auto length = static_cast<LongLength>(text.size());
    *to++ = static_cast<char>(longMark);
    std::memcpy(to, &length, sizeof length);
    to += sizeof length;
  }
  text.copy(to, text.size());
  size_ += static_cast<std::size_t>(to - start) + text.size();
}

std::unique_ptr<char[]> LogMessage::enlarge(std::uint64_t needed) {
  const std::size_t room = std::max(asMemorySize(needed), 2 * room_);
  std::unique_ptr<char[]> larger(new char[room]);
  std::memcpy(larger.get(), bytes(), size_);
  room_ = room;
  return std::exchange(outside_, std::move(larger));
}

LogMessage::Reader::Reader(const LogMessage& message)
    : at_(message.addressOf(Place::text)), end_(message.bytes() + message.size_) {}

std::string_view LogMessage::Reader::next() {
  const std::string_view text = textAt(at_);
  at_ = endOf(text);
  return text;
}

}  // namespace BasicLog
