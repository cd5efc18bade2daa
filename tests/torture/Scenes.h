// Scenes: each is a command line on a store, and together they have every command of the catalogue at work.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Tree.h"

struct Scene {
  std::string name;  // the command as in the catalogue, then, after a comma, what is special
  std::vector<std::string> words;
  Tree store;

  // The part of the name before the comma.
  std::string command() const { return name.substr(0, name.find(',')); }
};

// How GoogleTest shows one.
void PrintTo(const Scene& scene, std::ostream* out);

// The same at every call.
std::vector<Scene> allScenes();

// The programs that the commands start, on this host, for all scenes: each notes its call in /run/calls.
void installTools();
