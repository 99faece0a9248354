// Writes the golden descriptor lock from the built library. Run it (through the
// update-golden-descriptors target) only when a schema change is intended.
#include <cstdio>
#include <fstream>

#include "schema_descriptors.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT\n", argv[0]);
    return 2;
  }
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  if (!out || !pctest::BuiltSchemaDescriptors().SerializeToOstream(&out)) {
    std::fprintf(stderr, "%s: cannot write %s\n", argv[0], argv[1]);
    return 1;
  }
  return 0;
}
