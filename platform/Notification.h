#pragma once

#include <algorithm>
#include <boost/function.hpp>
#include <list>
#include <mutex>
#include <utility>

namespace Notification {

/// A list of handlers that are all called, in the order of subscription, when the event fires.
/// `Signature` is a function type returning void. All operations may be called from any thread; a
/// handler may subscribe and unsubscribe, which takes effect at the next firing.
template <class Signature>
class Event {
 public:
  using Handler = boost::function<Signature>;

  /// Appends a handler behind those already there.
  void subscribePost(Handler handler) {
    const std::lock_guard lock(mutex_);
    handlers_.push_back(std::move(handler));
  }

  /// Removes every handler that equals `handler` (for bound members: same member, same object).
  template <class Functor>
  void unsubscribePost(const Functor& handler) {
    const std::lock_guard lock(mutex_);
    handlers_.remove_if([&](const Handler& known) { return known.contains(handler); });
  }

  template <class... Arguments>
  void fire(const Arguments&... arguments) const {
    for (const Handler& handler : snapshot()) handler(arguments...);
  }

 private:
  std::list<Handler> snapshot() const {
    const std::lock_guard lock(mutex_);
    return handlers_;
  }

  mutable std::mutex mutex_;
  std::list<Handler> handlers_;
};

}  // namespace Notification
