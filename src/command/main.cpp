#include "base/system/Process.h"
#include "command/Entry.h"

int main(int argc, char** argv) {
  prepareProcess();
  return runRavctl(argc, argv);
}
