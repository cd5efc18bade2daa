// Empty: the library of this file only carries the precompiled headers of the tests.
