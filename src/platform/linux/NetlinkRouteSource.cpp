#include "platform/linux/NetlinkRouteSource.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace zivora::platform {
namespace {

constexpr unsigned kGroups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

int openNetlink(unsigned groups) {
  int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (fd < 0) return -1;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// The output interface of a default route message of the main table, or 0.
int defaultRouteIndex(const nlmsghdr* message) {
  if (message->nlmsg_type != RTM_NEWROUTE) return 0;
  const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
  if (route->rtm_dst_len != 0 || route->rtm_table != RT_TABLE_MAIN ||
      route->rtm_type != RTN_UNICAST)
    return 0;
  int length = static_cast<int>(RTM_PAYLOAD(message));
  for (const rtattr* attribute = RTM_RTA(route); RTA_OK(attribute, length);
       attribute = RTA_NEXT(attribute, length)) {
    if (attribute->rta_type == RTA_OIF && RTA_PAYLOAD(attribute) >= sizeof(int)) {
      int index = 0;
      std::memcpy(&index, RTA_DATA(attribute), sizeof index);
      return index;
    }
  }
  return 0;
}

}  // namespace

std::unique_ptr<NetlinkRouteSource> NetlinkRouteSource::open() {
  int events = openNetlink(kGroups);
  if (events < 0) return nullptr;
  int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake < 0) {
    ::close(events);
    return nullptr;
  }
  return std::unique_ptr<NetlinkRouteSource>(new NetlinkRouteSource(events, wake));
}

NetlinkRouteSource::~NetlinkRouteSource() {
  ::close(events_);
  ::close(wake_);
}

std::optional<std::string> NetlinkRouteSource::defaultRouteInterface() {
  if (auto name = defaultRouteInterface(AF_INET)) return name;
  return defaultRouteInterface(AF_INET6);
}

// Dumps the routing table of `family` on a socket of its own, so that the
// reply never mixes with the change notices.
std::optional<std::string> NetlinkRouteSource::defaultRouteInterface(int family) {
  int fd = openNetlink(0);
  if (fd < 0) return std::nullopt;
  struct {
    nlmsghdr header;
    rtmsg route;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = 1;
  request.route.rtm_family = static_cast<unsigned char>(family);
  int index = 0;
  if (::send(fd, &request, request.header.nlmsg_len, 0) >= 0) {
    std::vector<char> buffer(32768);
    bool done = false;
    while (!done) {
      pollfd ready{fd, POLLIN, 0};
      if (::poll(&ready, 1, 1000) <= 0) break;
      ssize_t got = ::recv(fd, buffer.data(), buffer.size(), 0);
      if (got <= 0) break;
      int length = static_cast<int>(got);
      // The kernel's NLMSG_OK compares its unsigned length field with our
      // signed count; clang flags the macro's own comparison.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
      for (auto* message = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(message, length);
           message = NLMSG_NEXT(message, length)) {
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
          done = true;
          break;
        }
        if (index == 0) index = defaultRouteIndex(message);
      }
#pragma GCC diagnostic pop
    }
  }
  ::close(fd);
  char name[IF_NAMESIZE] = {};
  if (index == 0 || !::if_indextoname(static_cast<unsigned>(index), name)) return std::nullopt;
  return std::string(name);
}

bool NetlinkRouteSource::waitForChange(std::chrono::milliseconds timeout) {
  pollfd ready[2] = {{events_, POLLIN, 0}, {wake_, POLLIN, 0}};
  if (::poll(ready, 2, static_cast<int>(timeout.count())) <= 0) return false;
  if (ready[1].revents != 0) return false;
  // Only the fact of a change matters: the notices themselves are dropped.
  char buffer[8192];
  bool changed = false;
  for (;;) {
    ssize_t got = ::recv(events_, buffer, sizeof buffer, 0);
    if (got > 0 || (got < 0 && errno == ENOBUFS)) {
      changed = true;  // ENOBUFS: so many notices that some were lost
      continue;
    }
    return changed;
  }
}

void NetlinkRouteSource::interrupt() {
  std::uint64_t one = 1;
  [[maybe_unused]] auto written = ::write(wake_, &one, sizeof one);
}

}  // namespace zivora::platform
