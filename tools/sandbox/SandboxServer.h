#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "AdCatalogue.h"
#include "FileMisbehaviour.h"
#include "Misbehaviour.h"
#include "ReceivedRequest.h"
#include "RequestJournal.h"
#include "RewardLedger.h"

namespace httplib {
class SSLServer;
struct Request;
struct Response;
}  // namespace httplib

namespace zivora::sandbox {

struct SandboxOptions {
  // ca.pem, server.pem and server-key.pem; made on start when missing.
  std::filesystem::path certDirectory{};
  // Served under /files/; empty serves nothing.
  std::filesystem::path filesDirectory{};
  // The ads' generated media, also served under /files/ (a name in
  // filesDirectory wins); kept across runs. Empty means
  // $TMPDIR/zivora-sandbox-media-2.
  std::filesystem::path mediaDirectory{};
  // Whether start() makes the missing media (seconds on the first start).
  bool makeMedia = true;
  std::string host = "127.0.0.1";
  // 0 lets the system choose a free port.
  int port = 0;
  // Where the server keeps what must outlive its process: the journal of
  // answered events and file requests. Empty keeps nothing.
  std::filesystem::path stateDirectory{};
};

// A scripted ad server on loopback TLS. It checks the SDK's signed requests,
// answers them from a table of request handlers, serves files with byte
// ranges, records everything it receives and misbehaves on demand.
class SandboxServer {
 public:
  // Turns the request's JSON value (the document's only member) into the
  // reply document.
  using RequestHandler = std::function<nlohmann::json(const nlohmann::json& request)>;

  explicit SandboxServer(SandboxOptions options);
  ~SandboxServer();
  SandboxServer(const SandboxServer&) = delete;
  SandboxServer& operator=(const SandboxServer&) = delete;

  // Makes the certificates if needed, binds and starts serving; returns the
  // port. Throws std::runtime_error when it cannot.
  int start();
  // Releases stalled requests and stops; returns when every worker is done.
  void stop();

  int port() const { return port_; }
  std::string baseUrl() const;
  std::string adEndpoint() const;
  std::string analyticsEndpoint() const;
  std::string fileUrl(std::string_view name) const;
  std::string caFile() const;

  // Replaces or adds the handler for a request name ("getInitialization",
  // "getVideo", ...). Requests without a handler get {"error": 1}.
  void setHandler(const std::string& requestName, RequestHandler handler);

  // The next `count` ad endpoint requests named `requestName` (any name when
  // empty) get `kind`, after the faults already queued for them.
  void misbehave(Misbehaviour::Kind kind, int count = 1, int errorCode = 1,
                 std::string requestName = "");
  void misbehave(Misbehaviour misbehaviour, int count);
  // What the analytics endpoint answers from now on (by default 200 with
  // {"Status":"Accepted"}).
  void setAnalyticsReply(int status, std::string body);
  // The next `count` requests under /files/ get `misbehaviour`.
  void misbehaveFiles(FileMisbehaviour misbehaviour, int count = 1);
  // Lets every stalled request go on and answer normally.
  void releaseStalled();
  // The next `count` queued ad events ("startWatchingAd", "watchedAd",
  // "eventPurchase", "removeMotivatedRewards") get status 500; they are
  // recorded all the same.
  void failEvents(int count);
  // The queued ad events received so far, in order.
  std::vector<ReceivedRequest> events() const;
  static bool isEventName(std::string_view requestName);

  // The ads that "getVideo" answers, by placement; a test may replace one
  // or add its own.
  AdCatalogue& catalogue() { return catalogue_; }
  const AdCatalogue& catalogue() const { return catalogue_; }
  // Granted motivated rewards: "getMotivatedRewards" lists them,
  // "removeMotivatedRewards" drops them, and a "watchedAd" of an ad with
  // "motivationInfo" grants one.
  RewardLedger& rewards() { return rewards_; }
  // Where the generated media live.
  const std::filesystem::path& mediaDirectory() const { return options_.mediaDirectory; }

  std::vector<ReceivedRequest> received() const;
  void clearReceived();
  // Waits until at least `count` requests have been recorded since the last
  // clearReceived(); false on timeout.
  bool waitForReceived(std::size_t count, std::chrono::milliseconds timeout) const;

 private:
  void installRoutes();
  void handleAdRequest(const httplib::Request& request, httplib::Response& response);
  void handleAnalytics(const httplib::Request& request, httplib::Response& response);
  void handleControl(const httplib::Request& request, httplib::Response& response);
  void record(ReceivedRequest entry);
  ReceivedRequest recordOf(const httplib::Request& request) const;
  nlohmann::json dispatch(const ReceivedRequest& entry);
  nlohmann::json initializationReply() const;
  void installProtocolHandlers();
  nlohmann::json watchedAd(const nlohmann::json& request);
  void handleTracker(const httplib::Request& request, httplib::Response& response);
  void handleLanding(const httplib::Request& request, httplib::Response& response);
  std::optional<Misbehaviour> takeMisbehaviour(const std::string& requestName);
  std::optional<FileMisbehaviour> takeFileMisbehaviour(const std::string& name);
  void handleFile(const httplib::Request& request, httplib::Response& response);
  bool takeEventFailure(const std::string& requestName);
  void actOut(const Misbehaviour& misbehaviour, httplib::Response& response);
  // How many times releaseStalled() has been called.
  std::uint64_t releaseCount();
  // Blocks until releaseStalled() is called more than `releasesSeen` times
  // in all, or stop(); false when stopping. A request counts the releases
  // before it is recorded, so a release that a client sends as soon as it
  // sees the request recorded is never missed.
  bool stall(std::uint64_t releasesSeen);
  // Blocks for `delay` or until stop(); false when stopping.
  bool pause(std::chrono::milliseconds delay);
  // False once the server is stopping.
  bool isRunning();
  // Holds a misbehaving request as its fault says; false when stopping.
  bool hold(const Misbehaviour& misbehaviour, std::uint64_t releasesSeen);
  void journalEvent(const ReceivedRequest& entry, int status, std::string_view fault);
  void journalFile(const httplib::Request& request, const std::optional<FileMisbehaviour>& fault);
  void controlMisbehaveFiles(const httplib::Request& request, httplib::Response& response);

  SandboxOptions options_;
  RequestJournal journal_;
  int port_ = 0;
  std::unique_ptr<httplib::SSLServer> server_;
  std::thread listener_;
  std::atomic<bool> listenerDone_{false};

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<ReceivedRequest> received_;
  std::deque<Misbehaviour> misbehaviours_;
  std::deque<FileMisbehaviour> fileMisbehaviours_;
  std::map<std::string, RequestHandler> handlers_;
  AdCatalogue catalogue_;
  RewardLedger rewards_;
  std::uint64_t releases_ = 0;
  int eventFailures_ = 0;
  int analyticsStatus_ = 200;
  std::string analyticsReply_ = R"({"Status":"Accepted"})";
  bool stopping_ = false;
};

}  // namespace zivora::sandbox
