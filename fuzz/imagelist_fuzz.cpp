/// @file
/// Feeds the imagelist parser with files of any content and checks that what it kept is text.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lumenharbour.h"

namespace {

FILE* last_opened = nullptr;
constexpr uint8 SWITCH_MAC[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

bool is_text(const char (&field)[LUMENHARBOUR_FILENAME_SIZE]) {
  return memchr(field, '\0', sizeof(field)) != nullptr;
}

}  // namespace

// The parser leaves its stream open. A fuzzer parses millions of files, so it has to know the stream to close it.
extern "C" FILE* fopen(const char* path, const char* mode) {
  return last_opened = fopen64(path, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("imagelist", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) abort();

  lumenharbour_info_clear();
  memcpy(gLumenHarbourInfo.sys_mac, SWITCH_MAC, sizeof(SWITCH_MAC));
  last_opened = nullptr;
  const int32 rc = lumenharbour_parse_imagelist_file(path.c_str(), static_cast<uint32>(path.size()));
  if (last_opened == nullptr || fclose(last_opened) != 0) abort();
  if (rc != 0 && rc != -1) abort();
  if (!is_text(gLumenHarbourInfo.rcv_image_name) || !is_text(gLumenHarbourInfo.image_version) ||
      !is_text(gLumenHarbourInfo.rcv_config_name))
    abort();
  return 0;
}
