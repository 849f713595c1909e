#include "platform/CurlShareHandle.h"

#include <array>
#include <mutex>
#include <utility>

#include "platform/CurlGlobal.h"

namespace velmor {

namespace {

// One mutex per kind of shared data, indexed by curl_lock_data.
using MutexArray = std::array<std::mutex, CURL_LOCK_DATA_LAST>;

std::mutex* mutexFor(curl_lock_data data, void* locks) {
  auto* mutexes = static_cast<MutexArray*>(locks);
  const auto index = static_cast<std::size_t>(data);
  return index < mutexes->size() ? &(*mutexes)[index] : nullptr;
}

// Shared and exclusive requests both take the one mutex: the shared data is
// small and held only briefly.
void lockShared(CURL*, curl_lock_data data, curl_lock_access, void* locks) {
  if (std::mutex* mutex = mutexFor(data, locks)) mutex->lock();
}

void unlockShared(CURL*, curl_lock_data data, void* locks) {
  if (std::mutex* mutex = mutexFor(data, locks)) mutex->unlock();
}

bool setUp(CURLSH* share, MutexArray* locks) {
  return curl_share_setopt(share, CURLSHOPT_LOCKFUNC, &lockShared) == CURLSHE_OK &&
         curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, &unlockShared) == CURLSHE_OK &&
         curl_share_setopt(share, CURLSHOPT_USERDATA, locks) == CURLSHE_OK &&
         curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS) == CURLSHE_OK;
}

}  // namespace

struct CurlShareHandle::Locks {
  MutexArray mutexes;
};

std::optional<CurlShareHandle> CurlShareHandle::create() {
  if (curlGlobalInit() != CURLE_OK) return std::nullopt;
  auto locks = std::make_unique<Locks>();
  CURLSH* share = curl_share_init();
  if (share == nullptr) return std::nullopt;
  CurlShareHandle owner(share, std::move(locks));
  if (!setUp(share, &owner.locks_->mutexes)) return std::nullopt;
  return owner;
}

CurlShareHandle::CurlShareHandle(CURLSH* handle, std::unique_ptr<Locks> locks)
    : locks_(std::move(locks)), handle_(handle) {}

CurlShareHandle::CurlShareHandle(CurlShareHandle&& other) noexcept
    : locks_(std::move(other.locks_)), handle_(std::exchange(other.handle_, nullptr)) {}

CurlShareHandle& CurlShareHandle::operator=(CurlShareHandle&& other) noexcept {
  if (this != &other) {
    reset();
    locks_ = std::move(other.locks_);
    handle_ = std::exchange(other.handle_, nullptr);
  }
  return *this;
}

CurlShareHandle::~CurlShareHandle() { reset(); }

void CurlShareHandle::reset() {
  // Before the locks go: clean-up still takes them.
  if (handle_ != nullptr) curl_share_cleanup(std::exchange(handle_, nullptr));
  locks_.reset();
}

}  // namespace velmor
