#include "log/front/BasicLog.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "base/system/RawWrite.h"
#include "base/text/StringUtils.h"
#include "base/text/TimeUtils.h"
#include "base/threads/NeverDestroyed.h"
#include "json/JsonModel.h"
#include "json/JsonWriter.h"
#include "log/front/EmitContext.h"
#include "log/front/LoggerKeeper.h"
#include "log/front/ScopeGuards.h"

namespace BasicLog {
namespace {

constexpr char sourceName[] = "BasicLog.cpp";

struct LevelRecord {
  Level level;
  char shortName[sizeof "T~"];
  char fullName[sizeof "<log level>"];
  int syslogPriority;
};

constexpr LevelRecord levelRecords[] = {
    {Level::trace, "T~", "TRACE", LOG_DEBUG},       {Level::debug, "D~", "DEBUG", LOG_DEBUG},
    {Level::info, "I~", "INFO", LOG_INFO},          {Level::notice, "N~", "NOTICE", LOG_NOTICE},
    {Level::warning, "W~", "WARNING", LOG_WARNING}, {Level::error, "E~", "ERROR", LOG_ERR},
    {Level::fatal, "F~", "FATAL", LOG_CRIT},
};

// The name functions use this record for every value that is not a level.
constexpr LevelRecord invalidRecord = {Level::byDefault, "X~", "<log level>", LOG_INFO};

// The words that name a level, in the order in which parseLogLevel tries them.
struct LevelWord {
  char word[sizeof "EMERGENCY"];
  Level level;
};

constexpr LevelWord levelWords[] = {
    {"TRACE", Level::trace},    {"DEBUG", Level::debug},     {"INFO", Level::info},   {"NOTICE", Level::notice},
    {"WARN", Level::warning},   {"WARNING", Level::warning}, {"ERR", Level::error},   {"ERROR", Level::error},
    {"FATAL", Level::fatal},    {"PANIC", Level::fatal},     {"EMERG", Level::fatal}, {"EMERGENCY", Level::fatal},
    {"CRITICAL", Level::fatal}, {"ALERT", Level::fatal},
};

// Gets the logger again in each call. A static logger would deadlock if the failure occurs while it is initialised.
void logError(std::string_view text, std::string_view function) {
  const Logger& log = getLogger(basiclibLogger);
  if (log.isEnabled(Level::error)) {
    const Entry entry(log, Level::error, text, sourceName, function);
  }
}

const LevelRecord& recordOf(Level level, std::string_view function) {
  for (const LevelRecord& record : levelRecords) {
    if (record.level == level) return record;
  }
  logError("invalid log level", function);
  return invalidRecord;
}

bool endsLevelWord(std::string_view following) {
  return following.empty() || following.front() == ' ' || following.front() == ']';
}

std::int64_t ticksOf(const LogMessage& message) { return localTicks(message.created); }

std::string timeText(std::int64_t ticks) { return TimeUtils::formatTime(ticks, true, ' '); }

constexpr std::string_view longestHeader = "[WARNING 2024-03-01 12:00:05.000123]";
constexpr std::size_t timeLength = std::string_view("2024-03-01 12:00:05.000123").size();
constexpr std::size_t fractionLength = 6;  // the digits after the point

// Appends timeText(ticks) to `to`. Many entries fall into one second, so each thread keeps the text of its last second
// and replaces only the digits after the point. bench/log_bench shows what this gains: if the whole time is formatted
// for every entry, `written` takes 798 more instructions a message (of about 3,520), and `throughput` takes 1.1 times
// as long with one producer and 1.2 times as long with four.
void appendTime(std::string& to, std::int64_t ticks) {
  static thread_local std::int64_t lastSecond = INT64_MIN;
  static thread_local std::array<char, timeLength> text;
  const timeval time = TimeUtils::toTimeval(ticks);
  if (time.tv_sec != lastSecond) {
    const std::string whole = timeText(ticks);
    if (whole.size() != timeLength) {  // after 9999: only tests log at such times
      to += whole;
      return;
    }
    whole.copy(text.data(), timeLength);
    lastSecond = time.tv_sec;
  }
  std::int64_t micros = time.tv_usec;
  for (std::size_t i = 1; i <= fractionLength; ++i, micros /= 10) {
    text[timeLength - i] = static_cast<char>('0' + micros % 10);
  }
  to.append(text.data(), timeLength);
}

void appendHeader(std::string& to, const LogMessage& message) {
  to += '[';
  to += loglevel_fullname(message.level);
  to += ' ';
  appendTime(to, ticksOf(message));
  to += ']';
}

void appendBody(std::string& to, const LogMessage& message) {
  LogMessage::Reader reader(message);
  to += reader.next();
  if (!reader.isAtEnd()) to += ':';
  while (!reader.isAtEnd()) {
    to += ' ';
    to += reader.next();
    to += '=';
    to += reader.next();
  }
}

class NoOutput : public LogMessageProcessor {
 public:
  void process(std::unique_ptr<const LogMessage>& message) override { message.reset(); }
};

// Replaces loggers that could not be created.
Logger& strayLogger() {
  static NeverDestroyed<NoOutput> output;
  static NeverDestroyed<Logger> logger("<none>", output.get(), Level::info);
  return logger.get();
}

std::atomic<AssertHandler> assertHandler{nullptr};

}  // namespace

// --- Levels

const char* loglevel_shortname(Level level) { return recordOf(level, "loglevel_shortname").shortName; }

const char* loglevel_fullname(Level level) { return recordOf(level, "loglevel_fullname").fullName; }

int loglevel_to_syslog(Level level) { return recordOf(level, "loglevel_to_syslog").syslogPriority; }

bool parseLogLevel(TextOrNull text, Level& level) {
  text = StringUtils::trim(text, StringUtils::TrimSet::blanks);
  for (const LevelRecord& record : levelRecords) {
    if (!StringUtils::startsWithIgnoreCase(text, record.shortName)) continue;
    level = record.level;
    return true;
  }
  if (StringUtils::startsWith(text, "[")) text.remove_prefix(1);
  for (const LevelWord& entry : levelWords) {
    const std::string_view word = entry.word;
    if (!StringUtils::startsWithIgnoreCase(text, word)) continue;
    if (!endsLevelWord(text.substr(word.size()))) continue;
    level = entry.level;
    return true;
  }
  level = Level::info;
  return false;
}

Level parseLogLevel(TextOrNull text) {
  Level level = Level::info;
  (void)parseLogLevel(text, level);  // stores info if the text names no level
  return level;
}

bool secondByteAllows(Level level, char second) {
  // A name may begin at the second byte, behind a blank or a bracket, or have it as its second letter.
  const auto isAllowedBy = [&](std::string_view name, Level named) {
    return named >= level && (StringUtils::startsWithIgnoreCase(name, {&second, 1}) ||
                              StringUtils::startsWithIgnoreCase(name.substr(1), {&second, 1}));
  };
  // Behind a blank, the second byte may be another blank or a bracket.
  if (level <= Level::info || second == '[' || StringUtils::trim({&second, 1}, StringUtils::TrimSet::blanks).empty()) {
    return true;
  }
  return std::any_of(std::begin(levelRecords), std::end(levelRecords),
                     [&](const LevelRecord& record) { return isAllowedBy(record.shortName, record.level); }) ||
         std::any_of(std::begin(levelWords), std::end(levelWords),
                     [&](const LevelWord& entry) { return isAllowedBy(entry.word, entry.level); });
}

// --- Loggers

Logger& getLogger(TextOrNull name) {
  const ErrnoGuard guard;
  LoggerKeeper* keeper = usableKeeper();
  Logger* logger = keeper == nullptr ? nullptr : keeper->getLogger(name);
  return logger == nullptr ? strayLogger() : *logger;
}

Logger* findLogger(TextOrNull name) {
  LoggerKeeper* keeper = usableKeeper();
  return keeper == nullptr ? nullptr : keeper->findLogger(name);
}

void listLoggers(std::vector<std::string>& names) {
  if (LoggerKeeper* keeper = usableKeeper()) keeper->listLoggers(names);
}

void setDefaultLevel(Level level) {
  if (LoggerKeeper* keeper = usableKeeper()) keeper->setDefaultLevel(level);
}

Level getDefaultLevel() {
  LoggerKeeper* keeper = usableKeeper();
  return keeper == nullptr ? Level::byDefault : keeper->getDefaultLevel();
}

void setSyncProcessor(LogMessageProcessor* processor) {
  if (LoggerKeeper* keeper = usableKeeper()) {
    keeper->setSyncProcessor(processor);
  } else {
    delete processor;
  }
}

// --- Emitting

EmitContext& emitContext() {
  static thread_local EmitContext context;
  return context;
}

std::int64_t localTicks(std::int64_t micros) {
  const EmitContext& context = emitContext();
  if (!context.isEmitting()) return TimeUtils::toLocalTicks(micros);
  // Unsigned, because a signed overflow would be undefined.
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(micros) -
                                   static_cast<std::uint64_t>(*context.localOffset));
}

// --- Entries

void Entry::open(const Logger& logger, Level level, std::string_view text, std::string_view file,
                 std::string_view function) {
  const ErrnoGuard guard;
  const EmitContext& context = emitContext();
  if (context.isEmittingEcho) return;  // an emitter that logs about every entry would otherwise never finish
  message_ = LogMessage::make(file, function, logger.name(), text);
  message_->isFromEmitter = context.isEmitting();
  message_->level = effective(level);
  message_->created = TimeUtils::nowMicros();
  input_ = &logger.input();
}

void Entry::add(TextOrNull key, TextOrNull value) {
  if (!message_) return;
  const ErrnoGuard guard;
  message_->add(key, value);
}

void Entry::addNumber(TextOrNull key, std::int64_t value) {
  if (message_) add(key, StringUtils::toString(value));
}

void Entry::addHex(TextOrNull key, std::uint32_t value) {
  if (message_) add(key, StringUtils::toHex(value));
}

void Entry::addBool(TextOrNull key, bool value) { add(key, value ? "true" : "false"); }

void Entry::addAddress(TextOrNull key, TextOrNull host, std::int32_t port) {
  if (message_) add(key, StringUtils::concatenate({host, ":", StringUtils::toString(port)}));
}

void Entry::addErrno(int error) {
  if (!message_) return;
  const ErrnoGuard guard;
  char buffer[256];  // for the text of an unknown error in any language
  add("errmsg", ::strerror_r(error, buffer, sizeof buffer));
  addNumber("errno", error);
}

void Entry::submit() {
  if (!message_) return;
  const ErrnoGuard guard;
  std::unique_ptr<const LogMessage> finished = std::move(message_);
  input_->process(finished);
}

// --- Renderings

std::string textHeader(const LogMessage& message) {
  std::string header;
  header.reserve(longestHeader.size());
  appendHeader(header, message);
  return header;
}

std::string shortTextHeader(const LogMessage& message) {
  return StringUtils::concatenate({"[", loglevel_fullname(message.level), "]"});
}

std::string textBody(const LogMessage& message) {
  std::string body;
  body.reserve(message.size());  // enough: the length of a text takes as much as a separator
  appendBody(body, message);
  return body;
}

void appendTextLine(std::string& to, const LogMessage& message) {
  appendHeader(to, message);
  to += ' ';
  appendBody(to, message);
}

std::string jsonHeader(const LogMessage& message) {
  const std::int64_t ticks = ticksOf(message);
  const ScopedJson header(json::makeObject());
  json::setText(header.get(), "level", loglevel_fullname(message.level));
  json::setMember(header.get(), "ticks", json::makeNumber(static_cast<double>(ticks)));
  json::setText(header.get(), "time", timeText(ticks));
  std::string text;
  json::write(text, header.get());
  return text;
}

std::string jsonBody(const LogMessage& message) {
  const ScopedJson body(json::makeObject());
  json::setText(body.get(), "msg", message.text());
  const std::vector<LogParameter> parameters = message.parameters();
  if (!parameters.empty()) {
    jsObject* object = json::makeObject();
    json::setMember(body.get(), "params", object);
    for (const LogParameter& parameter : parameters) json::setText(object, parameter.key, parameter.value);
  }
  std::string text;
  json::write(text, body.get());
  return text;
}

// --- Assertions

void setAssertHandler(AssertHandler handler) { assertHandler = handler; }

void assertFailure(const char* file, int line, const char* message) {
  static thread_local bool isInHandler = false;
  const AssertHandler handler = assertHandler;
  if (handler == nullptr || isInHandler) {
    defaultAssertFailure(file, line, message);
    return;
  }
  const ScopedFlag flag(isInHandler);
  handler(file, line, message);
}

void defaultAssertFailure(const char* file, int line, const char* message) {
  static thread_local bool isReporting = false;
  std::array<char, 1024> text{};
  std::snprintf(text.data(), text.size(), "assert error, %s line %d, \"%s\" \n",
                file == nullptr ? "<filename unknown>" : file, line, message == nullptr ? "<no message>" : message);
  (void)writeFully(STDERR_FILENO, text.data());  // nothing is left to report a failure to
  if (!isReporting) {
    const ScopedFlag flag(isReporting);
    logError(text.data(), "defaultAssertFailure");
  }
  (void)::raise(SIGILL);
}

// --- The system log

SyslogConnection::SyslogConnection(const char* applicationName)
    : name_(applicationName == nullptr || *applicationName == '\0' ? "<appname unavailable>" : applicationName) {
  ::openlog(name_.c_str(), 0, LOG_USER);
}

SyslogConnection::~SyslogConnection() { ::closelog(); }

void SyslogConnection::send(Level level, const std::string& text) {
  ::syslog(loglevel_to_syslog(level), "%s", text.c_str());
}

}  // namespace BasicLog
