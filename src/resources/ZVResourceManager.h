#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "resources/ZVDownloadDelegate.h"
#include "resources/ZVFileInfoStatus.h"
#include "resources/ZVFileStatusEntity.h"

namespace zivora {

namespace dispatch {
class Queue;
}
namespace platform {
class FileSystem;
}
class ZVResourceLoader;

// What the player opens for a cached file: the file itself once complete,
// else a "customLoader://" address whose reads the progressive loader
// (attached to the running download) serves.
struct ZVAsset {
  std::string url;
  std::shared_ptr<ZVDownloadDelegate> loaderDelegate;
};

// Owns the resource cache: names cached files, queues downloads and hands
// them one at a time to the one ranged downloader, answers whether a file
// is complete, how big it is and where it lies, and removes files.
//
// The queue pump runs on "com.zivora.resources", completions on the main
// queue and requests on the callers' queues; one mutex guards the tables,
// and it is never held while a listener runs.
class ZVResourceManager : public ZVDownloadDelegate,
                          public std::enable_shared_from_this<ZVResourceManager> {
 public:
  // Makes the progressive loader of an incomplete file (playback sets it).
  using AssetLoaderFactory =
      std::function<std::shared_ptr<ZVDownloadDelegate>(const std::string& fileName)>;

  // The context's instance, brought up on first use; null before a context
  // with a runtime is installed.
  static std::shared_ptr<ZVResourceManager> defaultManager();

  // The cached file name of a resource URL: the lower-case hex MD5 of the
  // whole URL, a dot, and the URL's path extension with any query cut off.
  // The extension is reduced to at most 16 letters and digits, so a name
  // never holds '/', NUL or anything a shell or file system treats specially.
  static std::string convertURLToFileName(std::string_view url) noexcept;

  // The file seam every cache file goes through: the context's, or the real
  // system calls when there is no context (an object outliving it).
  static std::shared_ptr<platform::FileSystem> fileSystem();

  ZVResourceManager();
  ~ZVResourceManager() override;

  std::string pathToCacheDirectory();
  std::string pathToFile(const std::string& fileName);
  std::string pathToFileFromURL(const std::string& url);

  void loadURL(const std::string& url, const std::shared_ptr<ZVDownloadDelegate>& delegate);
  void loadURL(const std::string& url, const std::string& fileName,
               const std::shared_ptr<ZVDownloadDelegate>& delegate);
  void loadURLs(const std::vector<std::string>& urls,
                const std::shared_ptr<ZVDownloadDelegate>& delegate);
  void addInWaitingArray(const std::string& url, const std::string& fileName,
                         const std::shared_ptr<ZVDownloadDelegate>& delegate);
  void cancelLoading(const std::string&) {}
  void completeDownloadHandler(const std::function<void()>&) {}
  void tryDownloadNextFile();

  std::shared_ptr<ZVFileInfoStatus> getLoadInfo(const std::string& fileName);
  bool existFile(const std::string& path);
  bool existFileWithName(const std::string& fileName);
  bool containFile(const std::string& fileName);
  bool isLoaded(const std::string& fileName);
  // More than TS_RESERVED_FREE_SPACE bytes free.
  bool hasFreeSpace();
  std::uint64_t getFreeDiskspace();
  // The size on disk once complete, else the announced size; -1 for a file
  // never queued.
  std::int32_t fileSize(const std::string& fileName);
  ZVAsset assetForFile(const std::string& fileName);
  void setAssetLoaderFactory(AssetLoaderFactory factory);

  // Unlinks a regular file directly in the cache (nothing else) and, in
  // every case, forgets the name's records.
  void removeFile(const std::string& fileName);
  void removeLink(const std::string& fileName);
  // A read descriptor of the cached file, or -1; the caller closes it.
  int fileHandler(const std::string& fileName);

  void finishLoading(const std::string& fileName) override;
  void errorLoadingResource(const std::string& fileName, std::int32_t error) override;

  const std::shared_ptr<ZVResourceLoader>& loader() const { return loader_; }

 private:
  void init();
  void pumpQueue();

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<ZVFileStatusEntity>> files_;
  std::shared_ptr<ZVResourceLoader> loader_;
  std::deque<std::shared_ptr<ZVFileStatusEntity>> waiting_;
  std::string cacheFolder_;
  std::map<std::string, std::shared_ptr<ZVDownloadDelegate>> assetLoaders_;
  std::shared_ptr<dispatch::Queue> serialQueue_;
  AssetLoaderFactory assetLoaderFactory_;
};

}  // namespace zivora
