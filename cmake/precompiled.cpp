// Empty: the target of this file only carries the precompiled headers of the tests (see testing/CMakeLists.txt).
