// Runs a fuzz target over corpus files and directories, so that compilers without libFuzzer
// still exercise it (as a test over the committed seed corpus).
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Collect(const std::string& path, std::vector<std::string>& files) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return;
  if (!S_ISDIR(info.st_mode)) {
    files.push_back(path);
    return;
  }
  if (DIR* dir = opendir(path.c_str())) {
    while (dirent* entry = readdir(dir))
      if (entry->d_name[0] != '.') Collect(path + "/" + entry->d_name, files);
    closedir(dir);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) Collect(argv[i], files);
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("replayed %zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
