#include "command/framework/Authorization.h"

#include <unistd.h>

namespace {
int authorizationMode = authorizationNever;
}

void setAuthorizationMode(int mode) { authorizationMode = mode; }

bool isAuthorized() {
  switch (authorizationMode) {
    case authorizationAlways:
      return true;
    case authorizationRootOnly:
      return getuid() == 0 && geteuid() == 0;
    default:
      return false;
  }
}
