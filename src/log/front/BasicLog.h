// BasicLog: severity levels, named loggers, log entries, their text and JSON forms, and reports of failed assertions.
//
// A source file gets its logger once. To log, it asks whether the logger is enabled for the level, and only then builds
// an entry. The entry is submitted to the log at the end of its scope:
//
//   static BasicLog::Logger& log = BasicLog::getLogger(BasicLog::basiclibLogger);
//   if (log.isEnabled(BasicLog::Level::error)) {
//     BasicLog::Entry entry(log, BasicLog::Level::error, "failed to open file", "FileUtils.cpp", "makeUniqueFile");
//     entry.add("path", path);
//     entry.addErrno();
//   }
//
// Cost: a call below the logger's threshold allocates nothing. It takes a comparison (see bench/log.sh).
// Effects on the caller: the log copies every text. Logging leaves errno unchanged and reports no failure. An exception
// of a processor or an emitter goes no further.
// Threads: every function may be called from any thread. An entry belongs to the thread that builds it.
// Re-entry: a processor, an emitter or an assertion handler may log and get loggers. The log does not pass an entry
// that a processor logs to the processor again. It drops an entry whose thread would have to wait for itself.
// Lifetime: loggers live until the process has ended. Any thread may log until then, even while the process exits. At
// exit the log stops its output (see log/output/LogManager.h) and drops what is logged afterwards.
//
// This is the front end of the log. The back end (log/output/LogManager.h) passes the entries on to their outputs.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/text/TextOrNull.h"
#include "log/front/Level.h"
#include "log/front/LogMessage.h"

class LogInput;

namespace BasicLog {

// --- Levels (see Level.h)

// Return the short name, such as "W~", the full name, such as "WARNING", and the priority for syslog(3). For any value
// but the seven levels they log the error "invalid log level" with the logger "basiclib" and return "X~", "<log level>"
// and the priority of info.
const char* loglevel_shortname(Level level);
const char* loglevel_fullname(Level level);
int loglevel_to_syslog(Level level);

// Returns the level that a text names, or info if it names none. A null pointer names none. Leading and trailing
// whitespace is trimmed, and case is ignored. The trimmed text names a level if
// - it begins with a short name, or
// - it begins with a full or alternate name, after an optional "[", and the name is followed by the end of the text, a
//   blank or "]".
// So "[error] disk full" is error. FATAL, PANIC, EMERG, EMERGENCY, CRITICAL and ALERT are all fatal.
Level parseLogLevel(TextOrNull text);
// Stores that level in `level`. Returns true if the text names a level.
bool parseLogLevel(TextOrNull text, Level& level);
// Returns false if no text whose second byte is `second` has a level at or above `level`. At least every text without a
// name is info, so it returns true for info and all lower levels.
bool secondByteAllows(Level level, char second);

// --- Messages (see LogMessage.h)

// Receives finished entries.
class LogMessageProcessor {
 public:
  virtual ~LogMessageProcessor() = default;
  // A processor that keeps the message moves it out of `message`. If it does not, the caller passes the message on or
  // frees it. An exception that leaves process() is ignored.
  virtual void process(std::unique_ptr<const LogMessage>& message) = 0;
};

// --- Loggers

class Logger {
 public:
  // Only the log makes loggers. `input` receives the logger's entries and must outlive the logger.
  Logger(std::string_view name, LogMessageProcessor& input, Level threshold)
      : name_(name), input_(input), threshold_(effective(threshold)) {}
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  const std::string& name() const { return name_; }
  LogMessageProcessor& input() const { return input_; }

  // Returns true if entries of this level are built. Takes no lock.
  bool isEnabled(Level level) const { return effective(level) >= threshold_.load(std::memory_order_relaxed); }
  Level threshold() const { return threshold_.load(std::memory_order_relaxed); }
  // An invalid level and byDefault mean info.
  void setThreshold(Level level) { threshold_.store(effective(level), std::memory_order_relaxed); }

 private:
  friend class ::LogInput;
  const std::string name_;
  LogMessageProcessor& input_;
  std::atomic<Level> threshold_;
  Logger* next_ = nullptr;  // the logger created after this one; guarded by the input's lock
};

// The names that the program's sources use.
constexpr char controlLogger[] = "control";          // the command framework
constexpr char ravctlLogger[] = "ravctl";            // commands, profiles, configuration, service
constexpr char basiclibLogger[] = "basiclib";        // files, text, JSON, threads, time, the log itself
constexpr char threadUtilsLogger[] = "ThreadUtils";  // asynchronous tasks

// Returns the logger of that name. The first call for a name creates the logger, with the default level as threshold.
// The name may be the path of a source file: everything up to the last "/" and the ending of a C or C++ source are
// removed, so "/src/ProfileControl.cpp" means "ProfileControl". An empty name or a null pointer means
// "<anonymous logger>".
// If the logger cannot be created, getLogger reports a failed assertion. If that report returns, getLogger returns a
// logger that is not part of the log and drops its entries.
Logger& getLogger(TextOrNull name);
// Returns the logger of exactly that name, or null if there is none. Creates no logger.
Logger* findLogger(TextOrNull name);
// Appends the names of all loggers to `names`, in the order in which the loggers were created.
void listLoggers(std::vector<std::string>& names);

// Sets the threshold of every existing logger, and the initial threshold of later ones. Any value but the seven levels
// means info. Before the first call the default level is byDefault.
void setDefaultLevel(Level level);
Level getDefaultLevel();

// Installs the synchronous processor, or removes it if `processor` is null. The processor receives every entry before
// the entry is queued, on the thread that logs, and while that thread holds the log's lock.
// The log owns the processor and deletes the one that it replaces, unless both are the same. A processor that replaces
// itself is deleted when its process() returns.
void setSyncProcessor(LogMessageProcessor* processor);

// --- Entries

// A handle that builds an entry and submits it at the end of its scope. Below the logger's threshold the handle is
// empty: no entry is built, and the functions that add parameters do nothing. A null pointer counts as the empty text.
class Entry {
 public:
  Entry(const Logger& logger, Level level, TextOrNull text, TextOrNull file, TextOrNull function) {
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

  // Each function appends one key=value pair, except addErrno, which appends two.
  void add(TextOrNull key, TextOrNull value);
  void addNumber(TextOrNull key, std::int64_t value);                   // decimal
  void addHex(TextOrNull key, std::uint32_t value);                     // lower-case hexadecimal
  void addBool(TextOrNull key, bool value);                             // "true" or "false"
  void addAddress(TextOrNull key, TextOrNull host, std::int32_t port);  // "host:port"
  void addErrno(int error = errno);                                     // "errmsg" text, "errno" number

  // Submits the entry now and leaves the handle empty. An empty handle submits nothing.
  void submit();

 private:
  void open(const Logger& logger, Level level, std::string_view text, std::string_view file, std::string_view function);

  std::unique_ptr<LogMessage> message_;
  LogMessageProcessor* input_ = nullptr;
};

// --- Renderings

// Returns "[WARNING 2024-03-01 12:00:05.000123]": the level, and the local ticks (see TimeUtils.h) to the microsecond.
std::string textHeader(const LogMessage& message);
// Returns "[WARNING]": the level only.
std::string shortTextHeader(const LogMessage& message);
// Returns "opened: path=/x mode=644", or "opened" for a message without parameters.
std::string textBody(const LogMessage& message);
// Appends the header, a blank and the body to `to`.
void appendTextLine(std::string& to, const LogMessage& message);
// Return JSON objects: {"level", "ticks", "time"} and {"msg", "params": {...}}. A message without parameters has no
// "params". If several parameters have the same key, the last value is written in the place of the first. A parameter
// with an empty key is omitted.
std::string jsonHeader(const LogMessage& message);
std::string jsonBody(const LogMessage& message);

// --- Assertions

// Reports that an assertion of the program failed. Calls the installed handler. Calls defaultAssertFailure instead if
// no handler is installed, or if the assertion failed inside the handler. Null means an unknown file or message.
void assertFailure(const char* file, int line, const char* message);
// Writes   assert error, <file> line <n>, "<message>"   to standard error, logs the same text as an error with the
// logger "basiclib", and raises SIGILL, which ends the program. Never waits for a lock that the calling thread holds.
void defaultAssertFailure(const char* file, int line, const char* message);
using AssertHandler = void (*)(const char* file, int line, const char* message);
// Null restores the default.
void setAssertHandler(AssertHandler handler);

// --- The system log

// A connection to syslog(3) with the user facility. It is open as long as the object lives. A process may have only one
// at a time.
class SyslogConnection {
 public:
  // The application name. "<appname unavailable>" is used instead of null and of an empty name.
  explicit SyslogConnection(const char* applicationName);
  ~SyslogConnection();
  SyslogConnection(const SyslogConnection&) = delete;
  SyslogConnection& operator=(const SyslogConnection&) = delete;

  // Sends one line at the priority of `level`. The text is never interpreted as a format.
  void send(Level level, const std::string& text);

 private:
  const std::string name_;  // syslog(3) keeps a pointer to this text
};

}  // namespace BasicLog
