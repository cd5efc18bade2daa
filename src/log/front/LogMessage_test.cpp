#include "log/front/LogMessage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace {

using namespace BasicLog;

using Texts = std::vector<std::string>;

// All texts in the order in which they are stored.
Texts textsOf(const LogMessage& message) {
  Texts texts;
  for (const auto text : {message.file(), message.function(), message.logger(), message.text()}) {
    texts.emplace_back(text);
  }
  for (const LogParameter& parameter : message.parameters()) {
    texts.emplace_back(parameter.key);
    texts.emplace_back(parameter.value);
  }
  return texts;
}

// What a Reader returns.
Texts readFrom(const LogMessage& message) {
  Texts texts;
  for (LogMessage::Reader reader(message); !reader.isAtEnd();) texts.emplace_back(reader.next());
  return texts;
}

TEST(LogMessage, NewMessageHasEmptyTextsAndNoParameters) {
  const LogMessage message;
  EXPECT_EQ(textsOf(message), Texts({"", "", "", ""}));
  EXPECT_EQ(readFrom(message), Texts({""}));
  EXPECT_EQ(message.level, Level::info);
  EXPECT_FALSE(message.isFromEmitter);
  EXPECT_EQ(message.created, 0);
}

TEST(LogMessage, AMessageThatMakeDidNotCreateLeavesTheMemoryBehindItUnchanged) {
  alignas(LogMessage) char memory[sizeof(LogMessage) + 8];
  std::memset(memory, 'x', sizeof memory);
  auto* const message = ::new (static_cast<void*>(memory)) LogMessage;
  EXPECT_EQ(std::string_view(memory + sizeof(LogMessage), 8), "xxxxxxxx");
  message->~LogMessage();
}

TEST(LogMessage, ReturnsItsTextsAndItsParametersInTheOrderAdded) {
  LogMessage message;
  message.begin("file", "function", "logger", "text");
  message.add("a", "1");
  message.add("", "");
  message.add("a", "2");
  EXPECT_EQ(textsOf(message), Texts({"file", "function", "logger", "text", "a", "1", "", "", "a", "2"}));
  EXPECT_EQ(readFrom(message), Texts({"text", "a", "1", "", "", "a", "2"}));
  message.begin("f", "", "l", "");
  EXPECT_EQ(textsOf(message), Texts({"f", "", "l", ""})) << "begin replaces all texts and removes the parameters";
}

TEST(LogMessage, TextsMayHoldAnyByteAndMayBeAbsent) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  LogMessage message;
  message.begin(bytes, std::string_view(), bytes, bytes);
  message.add(std::string_view(), bytes);
  EXPECT_EQ(textsOf(message), Texts({bytes, "", bytes, bytes, "", bytes}));
}

TEST(LogMessage, TextsOfEveryLengthAreKeptWhereverTheBufferEnds) {
  for (std::size_t length = 0; length < 600; ++length) {
    const std::string text(length, 'x');
    LogMessage message;
    message.begin("f", "g", "l", text);
    message.add("key", text);
    message.add("last", "one");
    ASSERT_EQ(textsOf(message), Texts({"f", "g", "l", text, "key", text, "last", "one"})) << length;
  }
}

TEST(LogMessage, ManyParametersAreKept) {
  LogMessage message;
  message.begin("f", "g", "l", "text");
  Texts expected = {"f", "g", "l", "text"};
  for (int i = 0; i < 10'000; ++i) {
    const std::string number = std::to_string(i);
    message.add(number, number);
    expected.insert(expected.end(), 2, number);
  }
  EXPECT_EQ(textsOf(message), expected);
}

TEST(LogMessage, CopyDoesNotChangeWithTheOriginal) {
  for (const std::size_t length : {10U, 10'000U}) {
    SCOPED_TRACE(length);
    const std::string text(length, 'x');
    LogMessage message;
    message.level = Level::error;
    message.created = 7;
    message.isFromEmitter = true;
    message.begin("f", "g", "l", text);
    message.add("key", "value");
    LogMessage copy(message);
    LogMessage assigned;
    assigned.begin("longer", "texts", "than", std::string(500, 'y'));
    assigned = message;
    message.begin("", "", "", "changed");
    for (const LogMessage* other : {&copy, &assigned}) {
      EXPECT_EQ(other->level, Level::error);
      EXPECT_EQ(other->created, 7);
      EXPECT_TRUE(other->isFromEmitter);
      EXPECT_EQ(textsOf(*other), Texts({"f", "g", "l", text, "key", "value"}));
    }
    const LogMessage& itself = copy;
    copy = itself;
    EXPECT_EQ(textsOf(copy), Texts({"f", "g", "l", text, "key", "value"}));
  }
}

TEST(LogMessage, UsualMessageTakesOneAllocation) {
  const auto message = LogMessage::make("ProfileControl.cpp", "cmdGetProfileDetails", "ravctl",
                                        "a text of some forty bytes, as is usual");
  const auto addressOf = [](const void* place) { return reinterpret_cast<std::uintptr_t>(place); };
  message->add("path", "/etc/zuv/profiles/profile-123123/hip.conf");
  message->add("errno", "2");
  EXPECT_EQ(addressOf(message->file().data()), addressOf(message.get() + 1) + 1) << "the length takes one byte";
  EXPECT_EQ(textsOf(*message),
            Texts({"ProfileControl.cpp", "cmdGetProfileDetails", "ravctl", "a text of some forty bytes, as is usual",
                   "path", "/etc/zuv/profiles/profile-123123/hip.conf", "errno", "2"}));
}

TEST(LogMessage, MadeMessageGrowsBeyondItsRoomAndCanBeCopied) {
  for (std::size_t length = 0; length < 600; ++length) {
    const std::string text(length, 'x');
    const auto message = LogMessage::make(text, "g", text, "t");
    message->add(text, "value");
    message->add("key", text);
    const LogMessage copy(*message);
    const Texts expected = {text, "g", text, "t", text, "value", "key", text};
    ASSERT_EQ(textsOf(*message), expected) << length;
    ASSERT_EQ(textsOf(copy), expected) << length;
    message->begin("a", "b", "c", text);
    ASSERT_EQ(textsOf(*message), Texts({"a", "b", "c", text})) << length;
  }
}

TEST(LogMessage, MadeMessageHasRoomFor64BytesOfParameters) {
  const auto message = LogMessage::make("f", "g", "l", "text");
  EXPECT_EQ(message->size(), 11U) << "seven bytes of texts and four lengths";
  for (const std::size_t bytes : {64U, 65U}) {
    const auto filled = LogMessage::make("f", "g", "l", "text");
    const char* const before = filled->file().data();
    const std::string value(bytes - 5, 'x');  // three bytes of the key and two lengths are beside it
    filled->add("key", value);
    EXPECT_EQ(filled->size(), 11U + bytes);
    EXPECT_EQ(filled->file().data() == before, bytes == 64U);
    EXPECT_EQ(textsOf(*filled), Texts({"f", "g", "l", "text", "key", value}));
  }
}

TEST(LogMessage, RoomThatIsUsedUpIsDoubled) {
  LogMessage message;
  for (std::size_t room = message.size(); room < 10'000; room *= 2) {
    const char* const full = message.file().data();
    message.add("", "");
    const char* const doubled = message.file().data();
    ASSERT_NE(doubled, full) << room;
    while (message.size() < 2 * room) {
      message.add("", "");
      ASSERT_EQ(message.file().data(), doubled) << message.size();
    }
  }
}

TEST(LogMessage, TextsOfTheMessageMayBeAddedToIt) {
  for (std::size_t length = 0; length < 300; ++length) {
    const std::string text(length, 'x');
    const auto made = LogMessage::make("f", "g", "l", text);
    LogMessage begun;
    begun.begin("f", "g", "l", text);
    for (LogMessage* message : {made.get(), &begun}) {
      Texts expected = {"f", "g", "l", text};
      for (int round = 0; round < 4; ++round) {
        message->add(message->text(), message->text());
        message->add("copy", message->parameters().back().key);
        for (const std::string& added : {text, text, std::string("copy"), text}) expected.push_back(added);
      }
      ASSERT_EQ(textsOf(*message), expected) << length;
    }
  }
}

TEST(LogMessage, SizeCountsTheLongLengthOfALongText) {
  LogMessage message;
  message.begin("", "", "", std::string(254, 'x'));
  EXPECT_EQ(message.size(), 3U + 255U);
  message.begin("", "", "", std::string(255, 'x'));
  EXPECT_EQ(message.size(), 3U + 260U);
}

TEST(LogMessage, ViewsStayValidWhileOtherTextsAreRead) {
  auto message = std::make_unique<LogMessage>();
  message->begin("file", "function", "logger", "text");
  message->add("key", "value");
  const std::string_view views[] = {message->file(), message->function(), message->logger(), message->text()};
  const std::vector<LogParameter> parameters = message->parameters();
  LogMessage::Reader reader(*message);
  const std::string_view read = reader.next();
  EXPECT_EQ(textsOf(*message), Texts({"file", "function", "logger", "text", "key", "value"}));
  const LogMessage copy(*message);
  EXPECT_EQ(Texts(std::begin(views), std::end(views)), Texts({"file", "function", "logger", "text"}));
  EXPECT_EQ(parameters.at(0).key, "key");
  EXPECT_EQ(parameters.at(0).value, "value");
  EXPECT_EQ(read, "text");
}

}  // namespace
