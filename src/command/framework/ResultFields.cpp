#include "command/framework/ResultFields.h"

#include <utility>

#include "base/text/StringUtils.h"
#include "command/framework/CommandCore.h"

void StringResult::render(ValueBinder& sink) const {
  if (hasValue_) sink.takeText(name(), value_);
}

void StringResult::set(std::string value) {
  value_ = std::move(value);
  hasValue_ = true;
}

void StringResult::clear() {
  value_.clear();
  hasValue_ = false;
}

void BoolResult::render(ValueBinder& sink) const { sink.takeBoolean(name(), value_); }

void StringVectorResultField::render(ValueBinder& sink) const { sink.takeStringList(name(), list_); }

void StatusCodeResultField::render(ValueBinder& sink) const {
  const OutputMode& mode = owner_.mode();
  const bool failed = !status_.isSuccess();
  const bool showText = mode.verbose || (failed && !mode.quiet);
  const bool showCode = mode.verbose || failed;
  if (mode.verbose) sink.takeText("method", method_);
  if (showText) {
    const char* text = statusText(status_.code());
    sink.takeText("status_text", status_.details().empty()
                                     ? std::string(text)
                                     : StringUtils::concatenate({text, " (", status_.details(), ")"}));
  }
  if (showCode) {
    sink.takeText("status_code", StringUtils::concatenate({"0x", StringUtils::toHex8(status_.code())}));
  }
}
