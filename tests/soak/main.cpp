// zivora_soak: runs the headless test host (the sample host's session with
// short timeouts and a small disk) against the sandbox ad server again and
// again while killing either of them, cutting and delaying
// downloads and replies and filling the cache's disk, then squares what the
// SDK stored, cached and acknowledged against what the server served and
// accepted. Exit status 1 when an event was lost, a cached file was corrupt
// or a process crashed.
//
//   zivora_soak [--seconds N | --minutes N] [--short] [--seed S] [--work DIR] [--keep]
//               [--demo PATH] [--sandbox PATH] [--media DIR]
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <random>
#include <string>

#include "SoakRunner.h"

namespace {

using zivora::soak::SoakOptions;
namespace fs = std::filesystem;

struct CommandLine {
  SoakOptions options;
  bool keep = false;
  bool workGiven = false;
};

std::optional<CommandLine> parse(int argc, char** argv) {
  CommandLine line;
  line.options.seed = std::random_device{}();
  line.options.demo = ZIVORA_SOAK_HOST;
  line.options.sandbox = ZIVORA_SOAK_SANDBOX;
  const char* temporary = std::getenv("TMPDIR");
  const fs::path tmp = temporary && *temporary ? temporary : "/tmp";
  line.options.media = tmp / "zivora-sandbox-media";
  bool durationGiven = false;
  for (int i = 1; i < argc; ++i) {
    const std::string flag = argv[i];
    if (flag == "--short") {
      line.options.shortMode = true;
      if (!durationGiven) line.options.duration = std::chrono::seconds(15);
      continue;
    }
    if (flag == "--keep") {
      line.keep = true;
      continue;
    }
    if (i + 1 >= argc) return std::nullopt;
    const std::string value = argv[++i];
    if (flag == "--seconds" || flag == "--minutes") {
      line.options.duration =
          std::chrono::seconds(std::stol(value) * (flag == "--minutes" ? 60 : 1));
      durationGiven = true;
    } else if (flag == "--seed") {
      line.options.seed = std::stoull(value);
    } else if (flag == "--work") {
      line.options.work = value;
      line.workGiven = true;
    } else if (flag == "--demo") {
      line.options.demo = value;
    } else if (flag == "--sandbox") {
      line.options.sandbox = value;
    } else if (flag == "--media") {
      line.options.media = value;
    } else {
      return std::nullopt;
    }
  }
  // The children run in their own directories.
  for (fs::path* path : {&line.options.demo, &line.options.sandbox, &line.options.media})
    *path = fs::absolute(*path);
  if (!line.workGiven) line.options.work = tmp / ("zivora-soak-" + std::to_string(::getpid()));
  return line;
}

// A crashed host leaves a core beside its output for the post-mortem.
void allowCoreDumps() {
  struct rlimit limit {};
  if (getrlimit(RLIMIT_CORE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_CORE, &limit);
  }
}

// In a ThreadSanitizer build the host links uninstrumented libraries (glib,
// fontconfig, GStreamer, FFmpeg) whose own locking TSan cannot see: accesses
// made from inside them are not checked, the SDK's always are.
void addTsanSuppressions() {
  const char* current = std::getenv("TSAN_OPTIONS");
  std::string options = current ? current : "";
  if (options.find("suppressions=") != std::string::npos) return;
  if (!options.empty()) options += ':';
  options += "ignore_noninstrumented_modules=1:suppressions=" ZIVORA_SOAK_TSAN_SUPPRESSIONS;
  setenv("TSAN_OPTIONS", options.c_str(), 1);
}

}  // namespace

int main(int argc, char** argv) {
  auto line = parse(argc, argv);
  if (!line) {
    std::fprintf(
        stderr,
        "usage: zivora_soak [--seconds N | --minutes N] [--short] [--seed S] [--work DIR]\n"
        "                   [--keep] [--demo PATH] [--sandbox PATH] [--media DIR]\n");
    return 2;
  }
  allowCoreDumps();
  addTsanSuppressions();
  try {
    // Every soak starts from an empty data root and an empty journal.
    fs::remove_all(line->options.work);
    fs::create_directories(line->options.work);
    const int status = zivora::soak::SoakRunner(line->options).run();
    if (status == 0 && !line->keep && !line->workGiven)
      fs::remove_all(line->options.work);
    else
      std::cout << "work directory kept: " << line->options.work.string() << std::endl;
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zivora_soak: %s\n", error.what());
    return 2;
  }
}
