#include "log/output/TextEmitters.h"

#include <unistd.h>

#include <cstdio>

#include "base/system/RawWrite.h"

using BasicLog::Level;

void NullEmitterActor::write(Level, const std::string&, const std::string&) {}

void StdoutEmitterActor::write(Level, const std::string& header, const std::string& body) {
  (void)std::puts(BasicLog::sanitisedLine(header, body).c_str());  // failures are not reported to the code that logs
}

void StderrEmitterActor::write(Level, const std::string& header, const std::string& body) {
  (void)writeFully(STDERR_FILENO, BasicLog::sanitisedLine(header, body) + '\n');  // failures are not reported
}
