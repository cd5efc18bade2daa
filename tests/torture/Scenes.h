// Scenes: each scene is a command line and a store. Together they run every command of the catalogue.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Tree.h"

struct Scene {
  std::string name;  // the name of the command in the catalogue; after a comma, what is special
  std::vector<std::string> words;
  Tree store;

  // The part of the name before the comma.
  std::string command() const { return name.substr(0, name.find(',')); }
};

// GoogleTest calls it to print a scene.
void PrintTo(const Scene& scene, std::ostream* out);

// Returns the same scenes at every call.
std::vector<Scene> allScenes();

// Installs the programs that the commands start. Each appends its call to /run/calls.
void installTools();
