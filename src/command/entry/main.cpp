#include "base/system/Process.h"
#include "command/entry/Entry.h"

int main(int argc, char** argv) {
  prepareProcess();
  return runRavctl(argc, argv);
}
