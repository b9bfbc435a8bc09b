#include "SandboxMedia.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <stdexcept>

#include "DirectoryLock.h"

extern char** environ;

namespace zivora::sandbox {
namespace {

namespace fs = std::filesystem;

// The sound: AAC from a test tone, 10 buffers per second.
std::string withSound(const std::string& video, int seconds) {
  return video +
         " ! mux. audiotestsrc samplesperbuffer=4410 num-buffers=" + std::to_string(seconds * 10) +
         " ! audioconvert ! avenc_aac ! mux. " + "mp4mux name=mux faststart=true";
}

std::string clip(int seconds) {
  return withSound("videotestsrc num-buffers=" + std::to_string(seconds * 30) +
                       " ! video/x-raw,format=I420,width=640,height=360,framerate=30/1 "
                       "! x264enc speed-preset=ultrafast key-int-max=30",
                   seconds);
}

// Noise does not compress, so the encoder's bit rate decides the size:
// 4600 kbit/s for 10 s is about 5.5 MiB.
std::string large() {
  return withSound(
      "videotestsrc pattern=snow num-buffers=300 "
      "! video/x-raw,format=I420,width=1280,height=720,framerate=30/1 "
      "! x264enc speed-preset=ultrafast pass=cbr bitrate=4600 vbv-buf-capacity=1000 "
      "key-int-max=60",
      10);
}

std::string picture(const char* pattern, int width, int height) {
  return std::string("videotestsrc num-buffers=1 pattern=") + pattern +
         " ! video/x-raw,width=" + std::to_string(width) + ",height=" + std::to_string(height) +
         " ! videoconvert ! pngenc";
}

const std::map<std::string, std::string>& pipelines() {
  static const std::map<std::string, std::string> table{
      {SandboxMedia::kShortVideo, clip(3)},
      {SandboxMedia::kLongVideo, clip(30)},
      {SandboxMedia::kLargeVideo, large()},
      {SandboxMedia::kPostVideoImage, picture("smpte", 640, 360)},
      {SandboxMedia::kCurrencyIcon, picture("ball", 100, 112)},
      {SandboxMedia::kCloseButton, picture("white", 60, 60)},
      {SandboxMedia::kSoundOnButton, picture("green", 60, 60)},
      {SandboxMedia::kSoundOffButton, picture("red", 60, 60)},
  };
  return table;
}

// gst-launch-1.0 joins its arguments into one description; each word goes as
// its own argument and no shell is involved.
std::vector<std::string> launchArguments(const std::string& pipeline, const fs::path& output) {
  std::vector<std::string> arguments{"gst-launch-1.0", "-q", "-e"};
  std::istringstream words(pipeline);
  for (std::string word; words >> word;) arguments.push_back(word);
  // Muxed pipelines end in their muxer's name, pictures in the encoder.
  if (pipeline.find("name=mux") != std::string::npos) arguments.push_back("mux.");
  arguments.push_back("!");
  arguments.push_back("filesink");
  arguments.push_back("location=" + output.string());
  return arguments;
}

int runQuietly(std::vector<std::string> arguments) {
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return -1;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

// The number goes up whenever the generated media change, so that files
// cached by an older build are not served.
fs::path SandboxMedia::defaultDirectory() {
  return fs::temp_directory_path() / "zivora-sandbox-media-2";
}

std::vector<std::string> SandboxMedia::names() {
  std::vector<std::string> names;
  for (const auto& [name, pipeline] : pipelines()) names.push_back(name);
  return names;
}

bool SandboxMedia::allExist(const fs::path& directory) {
  for (const auto& [name, pipeline] : pipelines()) {
    std::error_code error;
    if (fs::file_size(directory / name, error) == 0 || error) return false;
  }
  return true;
}

void SandboxMedia::ensure(const fs::path& directory) {
  if (allExist(directory)) return;
  fs::create_directories(directory);
  DirectoryLock lock(directory);
  for (const auto& [name, pipeline] : pipelines()) {
    std::error_code error;
    if (fs::file_size(directory / name, error) == 0 || error) make(directory, name);
  }
}

void SandboxMedia::make(const fs::path& directory, const std::string& name) {
  const fs::path path = directory / name;
  const fs::path temporary = directory / (name + ".part" + std::to_string(::getpid()));
  const int status = runQuietly(launchArguments(pipelines().at(name), temporary));
  std::error_code error;
  if (status != 0 || fs::file_size(temporary, error) == 0 || error) {
    fs::remove(temporary, error);
    throw std::runtime_error("gst-launch-1.0 could not make " + path.string());
  }
  fs::rename(temporary, path);
}

}  // namespace zivora::sandbox
