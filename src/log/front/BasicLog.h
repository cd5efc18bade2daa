// BasicLog: severity levels, named loggers, log entries and their renderings, and the report of failed assertions.
//
// A source file gets its logger once, asks whether it is enabled, and only then builds an entry. The entry goes to the
// log when it leaves its scope:
//
//   static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
//   if (log.isEnabled(BasicLog::Level::error)) {
//     BasicLog::Entry entry(log, BasicLog::Level::error, "failed to open file", "FileUtils.cpp", "makeUniqueFile");
//     entry.add("path", path);
//     entry.addErrno();
//   }
//
// What is below a logger's threshold costs a comparison and allocates nothing. Texts are copied. Logging changes
// neither errno nor the course of the caller: nothing here fails or throws. Threads: everything may be called from any
// thread; an entry belongs to the thread that builds it. Re-entry: a processor, an emitter or an assertion handler may
// itself log or get loggers. What a processor logs skips the processor, and what would have to wait for its own thread
// is dropped. Lifetime: loggers live until the log is destroyed at exit; nothing may log from a static destructor.
//
// This is the front end. Where entries go is known to the back end alone (log/output/LogManager.h).
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "log/front/Level.h"
#include "log/front/LogMessage.h"

class LogInput;

namespace BasicLog {

// --- Levels (see Level.h)

// "W~", "WARNING" and the priority of syslog(3). For anything but the seven levels they log "invalid log level" to
// "basiclib" and return "X~", "<log level>" and the priority of info.
const char* loglevel_shortname(Level level);
const char* loglevel_fullname(Level level);
int loglevel_to_syslog(Level level);

// The level that a text names: a short name at the start of the trimmed text (blanks), or, after one "[", a full or
// alternate name that is followed by the end, a blank or "]"; the case of letters does not matter. "[error] disk full"
// is error. FATAL, PANIC, EMERG, EMERGENCY, CRITICAL and ALERT are all fatal. Text that names no level is info.
Level parseLogLevel(std::string_view text);
// The same into `level`; true when the text named one.
bool parseLogLevel(std::string_view text, Level& level);

// --- Messages (see LogMessage.h)

// Whatever takes finished entries.
class LogMessageProcessor {
 public:
  virtual ~LogMessageProcessor() = default;
  // A processor that keeps the message moves it out; what is left in `message` goes on, or is freed by the caller.
  virtual void process(std::unique_ptr<const LogMessage>& message) = 0;
};

// --- Loggers

class Logger {
 public:
  // Made by the log alone. `input` is where its entries go, it outlives the logger.
  Logger(std::string_view name, LogMessageProcessor& input, Level threshold)
      : name_(name), input_(input), threshold_(effective(threshold)) {}
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  const std::string& name() const { return name_; }
  LogMessageProcessor& input() const { return input_; }

  // Whether an entry of `level` would be built. Takes no lock.
  bool isEnabled(Level level) const { return effective(level) >= threshold_.load(std::memory_order_relaxed); }
  Level threshold() const { return threshold_.load(std::memory_order_relaxed); }
  // Invalid levels and byDefault mean info.
  void setThreshold(Level level) { threshold_.store(effective(level), std::memory_order_relaxed); }

 private:
  friend class ::LogInput;
  const std::string name_;
  LogMessageProcessor& input_;
  std::atomic<Level> threshold_;
  Logger* next_ = nullptr;  // in order of creation; guarded by the input's lock
};

// The names that the program's sources use.
constexpr char controlLogger[] = "control";          // the command framework
constexpr char ravctlLogger[] = "ravctl";            // commands, profiles, configuration, service
constexpr char basiclibLogger[] = "basiclib";        // files, text, JSON, threads, time, the log itself
constexpr char threadUtilsLogger[] = "ThreadUtils";  // asynchronous tasks

// The logger of that name, made on first use with the default level. Of a path only the part behind the last "/"
// counts, and the endings of C and C++ sources are taken off: "/src/ProfileControl.cpp" is "ProfileControl". Empty is
// "<anonymous logger>". When it cannot be made an assertion says so, and should that return, the result is a logger
// that is not part of the log and drops its entries.
Logger& getLogger(std::string_view name);
// The logger of exactly that name, or null; makes none.
Logger* findLogger(std::string_view name);
// Appends the names of all loggers in the order of their creation.
void listLoggers(std::vector<std::string>& names);

// The threshold of every logger there is and of those to come; anything but the seven levels stands for info.
// Before it is first set the default is byDefault.
void setDefaultLevel(Level level);
Level getDefaultLevel();

// Installs a processor that sees every entry on the thread that logs it, under the log's lock, before the entry is
// queued. The log owns it, and deletes the one it replaces, unless it is the same; null removes. A processor that
// replaces itself is deleted when it returns.
void setSyncProcessor(LogMessageProcessor* processor);

// --- Entries

// The handle through which an entry is built; it submits the entry at the end of its scope. Below the logger's
// threshold it is empty: then nothing is built and the adders do nothing.
class Entry {
 public:
  Entry(const Logger& logger, Level level, std::string_view text, std::string_view file, std::string_view function) {
    if (logger.isEnabled(level)) open(logger, level, text, file, function);
  }
  Entry(Entry&& other) noexcept = default;
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  Entry& operator=(Entry&&) = delete;
  ~Entry() {
    if (message_) submit();
  }

  bool isEmpty() const { return !message_; }

  // Each appends one key=value pair, addErrno two.
  void add(std::string_view key, std::string_view value);
  void addNumber(std::string_view key, std::int64_t value);                         // decimal
  void addHex(std::string_view key, std::uint32_t value);                           // lower-case hexadecimal
  void addBool(std::string_view key, bool value);                                   // "true" or "false"
  void addAddress(std::string_view key, std::string_view host, std::int32_t port);  // "host:port"
  void addErrno(int error = errno);                                                 // "errmsg" text, "errno" number

  // Hands the entry to the log now and leaves the handle empty. An empty handle submits nothing.
  void submit();

 private:
  void open(const Logger& logger, Level level, std::string_view text, std::string_view file, std::string_view function);

  std::unique_ptr<LogMessage> message_;
  LogMessageProcessor* input_ = nullptr;
};

// --- Renderings

// "[WARNING 2024-03-01 12:00:05.000123]" in local ticks (see TimeUtils.h), and "[WARNING]".
std::string textHeader(const LogMessage& message);
std::string shortTextHeader(const LogMessage& message);
// "opened: path=/x mode=644"; the message alone without parameters.
std::string textBody(const LogMessage& message);
// JSON objects: {"level", "ticks", "time"} and {"msg", "params": {...}}, the latter without "params" when there are
// none. Of parameters with one key the last value is written, in the place of the first; a parameter with an empty key
// is left out.
std::string jsonHeader(const LogMessage& message);
std::string jsonBody(const LogMessage& message);

// --- Assertions

// Reports a broken promise of the program's own code: calls the installed handler, or defaultAssertFailure when there
// is none, or when the handler's own code fails an assertion. Null stands for an unknown file or message.
void assertFailure(const char* file, int line, const char* message);
// Writes   assert error, <file> line <n>, "<message>"   to standard error, logs the same text to "basiclib", and raises
// SIGILL, which ends the program. Never waits for a lock that the calling thread holds.
void defaultAssertFailure(const char* file, int line, const char* message);
using AssertHandler = void (*)(const char* file, int line, const char* message);
// Null brings back the default.
void setAssertHandler(AssertHandler handler);

// --- The system log

// A connection to syslog(3), user facility, open as long as the object lives; there is one per process at a time.
class SyslogConnection {
 public:
  // Null and empty names become "<appname unavailable>".
  explicit SyslogConnection(const char* applicationName);
  ~SyslogConnection();
  SyslogConnection(const SyslogConnection&) = delete;
  SyslogConnection& operator=(const SyslogConnection&) = delete;

  // One line at the priority of `level`; the text is never taken for a format.
  void send(Level level, const std::string& text);

 private:
  const std::string name_;  // the system keeps a pointer to it
};

}  // namespace BasicLog
