#include "log/output/Actor.h"

namespace zuvsvc {

ConfigResult Actor::setConfig(std::string_view, std::string_view) { return ConfigResult::unknownKey; }

ConfigResult Actor::setConfig(std::string_view, std::int64_t) { return ConfigResult::unknownKey; }

void* Actor::getInterface(std::string_view) { return nullptr; }

}  // namespace zuvsvc
