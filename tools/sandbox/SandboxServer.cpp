#include "SandboxServer.h"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "AnalyticsForm.h"
#include "CertificateAuthority.h"
#include "FileResponder.h"
#include "SandboxMedia.h"
#include "SignedForm.h"

namespace zivora::sandbox {
namespace {

using nlohmann::json;

constexpr std::string_view kAdPath = "/HandleRequestV3.php";
constexpr std::string_view kAnalyticsPath = "/ProfilingEvent.php";
constexpr const char* kJson = "application/json";

// httplib puts the peer's and its own address among the request headers;
// they were never sent by the client.
constexpr std::array<std::string_view, 4> kPseudoHeaders{"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR",
                                                         "LOCAL_PORT"};

bool isPseudoHeader(std::string_view name) {
  for (std::string_view pseudo : kPseudoHeaders) {
    if (name == pseudo) return true;
  }
  return false;
}

json errorReply(int code, std::string_view why) { return {{"error", code}, {"message", why}}; }

// The request's name when Params is a document with exactly one member.
const json* onlyMember(const json& document, std::string* name) {
  if (!document.is_object() || document.size() != 1) return nullptr;
  *name = document.begin().key();
  return &document.begin().value();
}

std::string requestNameOf(const std::string& params) {
  const json document = json::parse(params, nullptr, false);
  std::string name;
  onlyMember(document, &name);
  return name;
}

void sendTruncated(httplib::Response& response) {
  const std::string full = json{{"error", 0}, {"padding", std::string(2048, 'x')}}.dump();
  const std::string half = full.substr(0, full.size() / 2);
  // The full length goes into Content-Length; returning false after half of
  // it makes httplib drop the connection.
  response.set_content_provider(full.size(), kJson,
                                [half](std::size_t, std::size_t, httplib::DataSink& sink) {
                                  sink.write(half.data(), half.size());
                                  return false;
                                });
}

std::filesystem::path defaultCertDirectory() {
  return std::filesystem::temp_directory_path() / "zivora-sandbox-certs";
}

}  // namespace

SandboxServer::SandboxServer(SandboxOptions options)
    : options_(std::move(options)),
      journal_(options_.stateDirectory),
      catalogue_([this](const std::string& name) { return fileUrl(name); },
                 [this] { return baseUrl(); }) {
  if (options_.certDirectory.empty()) options_.certDirectory = defaultCertDirectory();
  if (options_.mediaDirectory.empty()) options_.mediaDirectory = SandboxMedia::defaultDirectory();
  installProtocolHandlers();
}

void SandboxServer::installProtocolHandlers() {
  handlers_["getInitialization"] = [this](const json&) { return initializationReply(); };
  // The queued ad events: any 200 consumes them, the body is not read.
  for (const char* name : {"startWatchingAd", "eventPurchase"})
    handlers_[name] = [](const json&) { return json::object(); };
  handlers_["watchedAd"] = [this](const json& request) { return watchedAd(request); };
  handlers_["removeMotivatedRewards"] = [this](const json& request) {
    const json ids = request.is_object() ? request.value("rewardIds", json::array()) : json();
    std::vector<std::string> list;
    if (ids.is_array()) {
      for (const json& id : ids)
        if (id.is_string()) list.push_back(id.get<std::string>());
    }
    rewards_.remove(list);
    return json::object();
  };
  handlers_["getVideo"] = [this](const json& request) {
    const json placement = request.is_object() ? request.value("placementId", json()) : json();
    return catalogue_.adFor(placement.is_string() ? placement.get<std::string>() : "");
  };
  handlers_["clickAd"] = [](const json&) { return json::object(); };
  handlers_["getMotivatedRewards"] = [this](const json&) { return rewards_.reply(); };
}

// Watching a motivated ad to its end earns the user one reward.
json SandboxServer::watchedAd(const json& request) {
  const json adId = request.is_object() ? request.value("adId", json()) : json();
  if (!adId.is_string()) return json::object();
  const auto ad = catalogue_.adWithId(adId.get<std::string>());
  if (ad && ad->is_object() && ad->contains("motivationInfo")) {
    rewards_.grant("Sandbox Quest", 10);
  }
  return json::object();
}

SandboxServer::~SandboxServer() { stop(); }

int SandboxServer::start() {
  if (server_) throw std::runtime_error("the sandbox is already started");
  const CertificatePaths paths = CertificateAuthority::ensure(options_.certDirectory);
  if (options_.makeMedia) SandboxMedia::ensure(options_.mediaDirectory);
  server_ = std::make_unique<httplib::SSLServer>(paths.serverCert.c_str(), paths.serverKey.c_str());
  if (!server_->is_valid()) throw std::runtime_error("the sandbox's TLS setup failed");
  // Without it every small TLS exchange waits on Nagle's algorithm.
  server_->set_tcp_nodelay(true);
  // Idle keep-alive connections hold a worker that stop() has to wait for.
  server_->set_keep_alive_timeout(1);
  // httplib closes a connection after 5 requests by default, which makes
  // both sides pay a TLS handshake every fifth request; a client that keeps
  // its connection should keep it here too.
  server_->set_keep_alive_max_count(1000000);
  installRoutes();

  if (options_.port == 0) {
    port_ = server_->bind_to_any_port(options_.host);
  } else {
    port_ = server_->bind_to_port(options_.host, options_.port) ? options_.port : -1;
  }
  if (port_ <= 0) throw std::runtime_error(fmt::format("cannot bind {}", options_.host));

  listener_ = std::thread([this] {
    server_->listen_after_bind();
    listenerDone_ = true;
  });
  // httplib's stop() does nothing until the accept loop runs; wait for it so
  // that a stop() right after start() cannot be lost. Connections made in
  // the meantime already queue on the bound socket.
  while (!server_->is_running() && !listenerDone_) std::this_thread::yield();
  return port_;
}

void SandboxServer::stop() {
  if (!server_) return;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  server_->stop();
  if (listener_.joinable()) listener_.join();
}

std::string SandboxServer::baseUrl() const {
  return fmt::format("https://{}:{}", options_.host, port_);
}

std::string SandboxServer::adEndpoint() const { return baseUrl() + std::string(kAdPath); }

std::string SandboxServer::analyticsEndpoint() const {
  return baseUrl() + std::string(kAnalyticsPath);
}

std::string SandboxServer::fileUrl(std::string_view name) const {
  return fmt::format("{}/files/{}", baseUrl(), name);
}

std::string SandboxServer::caFile() const {
  return CertificateAuthority::pathsIn(options_.certDirectory).caFile.string();
}

void SandboxServer::setHandler(const std::string& requestName, RequestHandler handler) {
  std::lock_guard lock(mutex_);
  handlers_[requestName] = std::move(handler);
}

void SandboxServer::misbehave(Misbehaviour::Kind kind, int count, int errorCode,
                              std::string requestName) {
  misbehave(Misbehaviour{.kind = kind, .errorCode = errorCode, .requestName = requestName}, count);
}

void SandboxServer::misbehave(Misbehaviour misbehaviour, int count) {
  std::lock_guard lock(mutex_);
  for (int i = 0; i < count; ++i) misbehaviours_.push_back(misbehaviour);
}

void SandboxServer::releaseStalled() {
  {
    std::lock_guard lock(mutex_);
    ++releases_;
  }
  changed_.notify_all();
}

std::vector<ReceivedRequest> SandboxServer::received() const {
  std::lock_guard lock(mutex_);
  return received_;
}

void SandboxServer::clearReceived() {
  std::lock_guard lock(mutex_);
  received_.clear();
}

bool SandboxServer::waitForReceived(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return received_.size() >= count; });
}

void SandboxServer::installRoutes() {
  using httplib::Request;
  using httplib::Response;
  server_->Post(std::string(kAdPath), [this](const Request& request, Response& response) {
    handleAdRequest(request, response);
  });
  server_->Post(std::string(kAnalyticsPath), [this](const Request& request, Response& response) {
    handleAnalytics(request, response);
  });
  server_->Get(R"(/files/(.+))", [this](const Request& request, Response& response) {
    handleFile(request, response);
  });
  server_->Get(R"(/track/([^/]+)/([^/]+))", [this](const Request& request, Response& response) {
    handleTracker(request, response);
  });
  server_->Get(R"(/landing/([^/]+))", [this](const Request& request, Response& response) {
    handleLanding(request, response);
  });
  auto control = [this](const Request& request, Response& response) {
    handleControl(request, response);
  };
  server_->Get(R"(/control/[\w-]+)", control);
  server_->Post(R"(/control/[\w-]+)", control);
}

ReceivedRequest SandboxServer::recordOf(const httplib::Request& request) const {
  ReceivedRequest entry;
  entry.method = request.method;
  entry.path = request.path;
  for (const auto& [name, value] : request.headers) {
    if (!isPseudoHeader(name)) entry.headers.emplace_back(name, value);
  }
  entry.body = request.body;
  return entry;
}

void SandboxServer::record(ReceivedRequest entry) {
  {
    std::lock_guard lock(mutex_);
    received_.push_back(std::move(entry));
  }
  changed_.notify_all();
}

void SandboxServer::handleAdRequest(const httplib::Request& request, httplib::Response& response) {
  const std::uint64_t releasesSeen = releaseCount();
  ReceivedRequest entry = recordOf(request);
  const SignedForm form = SignedForm::parse(entry.body);
  entry.params = form.params;
  entry.md5Valid = form.md5Valid;
  entry.requestName = requestNameOf(form.params);
  record(entry);

  if (takeEventFailure(entry.requestName)) {
    response.status = 500;
    response.set_content("event refused on request", "text/plain");
    journalEvent(entry, response.status, "fail-events");
    return;
  }
  std::string_view fault;
  if (auto misbehaviour = takeMisbehaviour(entry.requestName)) {
    fault = Misbehaviour::nameOf(misbehaviour->kind);
    if (misbehaviour->kind != Misbehaviour::Kind::Stall &&
        misbehaviour->kind != Misbehaviour::Kind::Delay) {
      actOut(*misbehaviour, response);
      journalEvent(entry, response.status, fault);
      return;
    }
    if (!hold(*misbehaviour, releasesSeen)) {
      response.status = 503;
      journalEvent(entry, response.status, fault);
      return;
    }
  }
  response.status = 200;
  response.set_content(dispatch(entry).dump(), kJson);
  // Journalled before the reply leaves: a client that saw the 200 finds
  // the event in the journal even if this process dies right after.
  journalEvent(entry, response.status, fault);
}

void SandboxServer::journalEvent(const ReceivedRequest& entry, int status, std::string_view fault) {
  if (!isEventName(entry.requestName)) return;
  journal_.append({{"kind", "event"},
                   {"name", entry.requestName},
                   {"params", entry.params},
                   {"status", status},
                   {"fault", fault}});
}

void SandboxServer::journalFile(const httplib::Request& request,
                                const std::optional<FileMisbehaviour>& fault) {
  const bool ranged = request.ranges.size() == 1 && request.ranges[0].first >= 0;
  journal_.append({{"kind", "file"},
                   {"name", request.matches[1].str()},
                   {"from", ranged ? request.ranges[0].first : 0},
                   {"faulted", fault.has_value()}});
}

json SandboxServer::dispatch(const ReceivedRequest& entry) {
  if (!entry.md5Valid) return errorReply(1, "md5 does not match Params");
  const json document = json::parse(entry.params, nullptr, false);
  std::string name;
  const json* body = onlyMember(document, &name);
  if (!body) return errorReply(1, "Params is not a document with one request");
  RequestHandler handler;
  {
    std::lock_guard lock(mutex_);
    if (auto found = handlers_.find(name); found != handlers_.end()) handler = found->second;
  }
  if (!handler) return errorReply(1, "unknown request");
  return handler(*body);
}

json SandboxServer::initializationReply() const {
  return {{"closeButtonURL", fileUrl("close.png")},
          {"soundOnButtonURL", fileUrl("sound_on.png")},
          {"soundOffButtonURL", fileUrl("sound_off.png")}};
}

void SandboxServer::misbehaveFiles(FileMisbehaviour misbehaviour, int count) {
  std::lock_guard lock(mutex_);
  for (int i = 0; i < count; ++i) fileMisbehaviours_.push_back(misbehaviour);
}

std::optional<FileMisbehaviour> SandboxServer::takeFileMisbehaviour(const std::string& name) {
  std::lock_guard lock(mutex_);
  auto next = std::find_if(fileMisbehaviours_.begin(), fileMisbehaviours_.end(),
                           [&](const FileMisbehaviour& queued) { return queued.targets(name); });
  if (next == fileMisbehaviours_.end()) return std::nullopt;
  FileMisbehaviour taken = *next;
  fileMisbehaviours_.erase(next);
  return taken;
}

void SandboxServer::handleFile(const httplib::Request& request, httplib::Response& response) {
  const std::uint64_t releasesSeen = releaseCount();
  record(recordOf(request));
  const std::string name = request.matches[1].str();
  std::error_code error;
  const bool own = !options_.filesDirectory.empty() && FileResponder::isPlainName(name) &&
                   std::filesystem::exists(options_.filesDirectory / name, error);
  const FileResponder files(own ? options_.filesDirectory : options_.mediaDirectory);
  const auto misbehaviour = takeFileMisbehaviour(name);
  journalFile(request, misbehaviour);
  if (misbehaviour) {
    const auto delay = misbehaviour->delay;
    std::function<bool()> wait = [this, releasesSeen] { return stall(releasesSeen); };
    if (misbehaviour->kind == FileMisbehaviour::Kind::DelayAfter)
      wait = [this, delay] { return pause(delay); };
    if (misbehaviour->kind == FileMisbehaviour::Kind::Endless ||
        misbehaviour->kind == FileMisbehaviour::Kind::HugeLength)
      wait = [this] { return isRunning(); };
    return files.misbehave(*misbehaviour, name, request, response, std::move(wait));
  }
  files.respond(name, request, response);
}

std::optional<Misbehaviour> SandboxServer::takeMisbehaviour(const std::string& requestName) {
  std::lock_guard lock(mutex_);
  auto next = std::find_if(misbehaviours_.begin(), misbehaviours_.end(),
                           [&](const Misbehaviour& queued) { return queued.targets(requestName); });
  if (next == misbehaviours_.end()) return std::nullopt;
  Misbehaviour taken = *next;
  misbehaviours_.erase(next);
  return taken;
}

// The attribution tracker: 302 to the ad's landing page. "?status=N" answers
// N instead and "?location=none" leaves "Location" out, for probes of the
// tracker's odd answers.
void SandboxServer::handleTracker(const httplib::Request& request, httplib::Response& response) {
  record(recordOf(request));
  const std::string adId = request.matches[2].str();
  int status = 302;
  if (request.has_param("status")) status = std::atoi(request.get_param_value("status").c_str());
  response.status = (status >= 200 && status <= 599) ? status : 302;
  if (request.get_param_value("location") != "none") {
    response.set_header("Location", catalogue_.landingUrl(adId));
  }
  response.set_content("<html><body>moved</body></html>", "text/html");
}

void SandboxServer::handleLanding(const httplib::Request& request, httplib::Response& response) {
  record(recordOf(request));
  response.set_content("<html><body><h1>Sandbox Quest</h1></body></html>", "text/html");
}

void SandboxServer::actOut(const Misbehaviour& misbehaviour, httplib::Response& response) {
  using Kind = Misbehaviour::Kind;
  response.status = 200;
  switch (misbehaviour.kind) {
    case Kind::HttpError:
      response.status = 500;
      response.set_content(
          "<html><head><title>500 Internal Server Error</title></head>"
          "<body><h1>Internal Server Error</h1></body></html>",
          "text/html");
      return;
    case Kind::ErrorReply:
      response.set_content(json{{"error", misbehaviour.errorCode}}.dump(), kJson);
      return;
    case Kind::Garbage:
      response.set_content("<b>Warning</b>: this is not JSON {", "text/html");
      return;
    case Kind::EmptyBody:
      response.set_content("", kJson);
      return;
    case Kind::JsonArray:
      response.set_content(R"([{"error":0},1,"two"])", kJson);
      return;
    case Kind::JsonScalar:
      response.set_content("42", kJson);
      return;
    case Kind::CloseMidBody:
      sendTruncated(response);
      return;
    case Kind::HtmlPage:
      response.set_content(
          "<!DOCTYPE html><html><head><title>Welcome</title></head><body><p>The site is "
          "being set up.</p></body></html>",
          "text/html");
      return;
    case Kind::DeepNesting: {
      constexpr std::size_t kDepth = 100'000;
      response.set_content(
          R"({"videoURL":)" + std::string(kDepth, '[') + std::string(kDepth, ']') + "}", kJson);
      return;
    }
    case Kind::HugeReply:
      response.set_content(
          json{{"error", 0}, {"padding", std::string(24u * 1024 * 1024, 'x')}}.dump(), kJson);
      return;
    case Kind::Stall:
    case Kind::Delay:
      return;  // handled by the caller, which goes on to answer
  }
}

std::uint64_t SandboxServer::releaseCount() {
  std::lock_guard lock(mutex_);
  return releases_;
}

bool SandboxServer::stall(std::uint64_t releasesSeen) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return stopping_ || releases_ != releasesSeen; });
  return !stopping_;
}

bool SandboxServer::pause(std::chrono::milliseconds delay) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, delay, [&] { return stopping_; });
  return !stopping_;
}

bool SandboxServer::isRunning() {
  std::lock_guard lock(mutex_);
  return !stopping_;
}

bool SandboxServer::hold(const Misbehaviour& misbehaviour, std::uint64_t releasesSeen) {
  return misbehaviour.kind == Misbehaviour::Kind::Delay ? pause(misbehaviour.delay)
                                                        : stall(releasesSeen);
}

void SandboxServer::handleAnalytics(const httplib::Request& request, httplib::Response& response) {
  ReceivedRequest entry = recordOf(request);
  const AnalyticsForm form = AnalyticsForm::parse(request.body);
  entry.params = form.params;
  entry.md5Valid = form.wellFormed && form.md5Valid;
  entry.requestName = "analytics";
  record(std::move(entry));
  std::lock_guard lock(mutex_);
  response.status = analyticsStatus_;
  response.set_content(analyticsReply_, kJson);
}

bool SandboxServer::isEventName(std::string_view requestName) {
  return requestName == "startWatchingAd" || requestName == "watchedAd" ||
         requestName == "eventPurchase" || requestName == "removeMotivatedRewards";
}

void SandboxServer::failEvents(int count) {
  std::lock_guard lock(mutex_);
  eventFailures_ = std::max(count, 0);
}

bool SandboxServer::takeEventFailure(const std::string& requestName) {
  if (!isEventName(requestName)) return false;
  std::lock_guard lock(mutex_);
  if (eventFailures_ == 0) return false;
  --eventFailures_;
  return true;
}

std::vector<ReceivedRequest> SandboxServer::events() const {
  std::vector<ReceivedRequest> events;
  for (auto& entry : received())
    if (isEventName(entry.requestName)) events.push_back(std::move(entry));
  return events;
}

void SandboxServer::setAnalyticsReply(int status, std::string body) {
  std::lock_guard lock(mutex_);
  analyticsStatus_ = status;
  analyticsReply_ = std::move(body);
}

void SandboxServer::controlMisbehaveFiles(const httplib::Request& request,
                                          httplib::Response& response) {
  const auto kind = FileMisbehaviour::kindNamed(request.get_param_value("kind"));
  if (!kind) {
    response.status = 400;
    response.set_content("unknown kind", "text/plain");
    return;
  }
  const std::string count = request.get_param_value("count");
  misbehaveFiles(
      FileMisbehaviour{
          .kind = *kind,
          .bytes = std::strtoull(request.get_param_value("bytes").c_str(), nullptr, 10),
          .delay = std::chrono::milliseconds(std::atoi(request.get_param_value("ms").c_str())),
          .fileName = request.get_param_value("file")},
      count.empty() ? 1 : std::atoi(count.c_str()));
  response.set_content("{}", kJson);
}

void SandboxServer::handleControl(const httplib::Request& request, httplib::Response& response) {
  const std::string& path = request.path;
  if (path == "/control/received" && request.method == "GET") {
    json list = json::array();
    for (const ReceivedRequest& entry : received()) list.push_back(entry.toJson());
    // Recorded bodies may hold bytes that are not UTF-8: replace, don't fail.
    response.set_content(list.dump(-1, ' ', false, json::error_handler_t::replace), kJson);
  } else if (path == "/control/misbehave" && request.method == "POST") {
    const auto kind = Misbehaviour::kindNamed(request.get_param_value("kind"));
    if (!kind) {
      response.status = 400;
      response.set_content("unknown kind", "text/plain");
      return;
    }
    const std::string count = request.get_param_value("count");
    const std::string code = request.get_param_value("error");
    misbehave(Misbehaviour{.kind = *kind,
                           .errorCode = code.empty() ? 1 : std::atoi(code.c_str()),
                           .requestName = request.get_param_value("request"),
                           .delay = std::chrono::milliseconds(
                               std::atoi(request.get_param_value("ms").c_str()))},
              count.empty() ? 1 : std::atoi(count.c_str()));
    response.set_content("{}", kJson);
  } else if (path == "/control/misbehave-files" && request.method == "POST") {
    controlMisbehaveFiles(request, response);
  } else if (path == "/control/grant-reward" && request.method == "POST") {
    const std::string count = request.get_param_value("count");
    const std::string amount = request.get_param_value("reward");
    const std::string appName = request.get_param_value("appName");
    for (int i = 0, n = count.empty() ? 1 : std::atoi(count.c_str()); i < n; ++i) {
      rewards_.grant(appName.empty() ? "Sandbox Quest" : appName,
                     amount.empty() ? 10 : std::atoi(amount.c_str()));
    }
    response.set_content(rewards_.reply().dump(), kJson);
  } else if (path == "/control/fail-events" && request.method == "POST") {
    const std::string count = request.get_param_value("count");
    failEvents(count.empty() ? 1 : std::atoi(count.c_str()));
    response.set_content("{}", kJson);
  } else if (path == "/control/release" && request.method == "POST") {
    releaseStalled();
    response.set_content("{}", kJson);
  } else if (path == "/control/clear" && request.method == "POST") {
    clearReceived();
    response.set_content("{}", kJson);
  } else {
    response.status = 404;
  }
}

}  // namespace zivora::sandbox
