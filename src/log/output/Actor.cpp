#include "log/output/Actor.h"

namespace zuvsvc {

ConfigResult Actor::setConfig(TextOrNull, TextOrNull) { return ConfigResult::unknownKey; }

ConfigResult Actor::setConfig(TextOrNull, std::int64_t) { return ConfigResult::unknownKey; }

void* Actor::getInterface(std::string_view) { return nullptr; }

}  // namespace zuvsvc
