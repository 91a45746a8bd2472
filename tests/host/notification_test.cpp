#include "platform/Notification.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/bind.hpp>
#include <string>
#include <thread>
#include <vector>

namespace {

using Event = Notification::Event<void(const std::string&, int)>;

struct Listener {
  std::vector<std::string> heard;

  void hear(const std::string& text, int number) {
    heard.push_back(text + " " + std::to_string(number));
  }
  void overhear(const std::string& text, int /*number*/) { heard.push_back("overheard " + text); }
};

using Heard = std::vector<std::string>;

TEST(Notification, WithoutHandlersFiresAtNobody) { Event().fire("text", 1); }

TEST(Notification, ReachesItsHandlersWithItsArguments) {
  Event event;
  Listener listener;
  event.subscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
  event.fire("one", 1);
  event.fire("two", 2);
  EXPECT_EQ(listener.heard, (Heard{"one 1", "two 2"}));
}

TEST(Notification, CallsHandlersInTheOrderOfTheirSubscription) {
  Event event;
  Heard order;
  event.subscribePost([&](const std::string&, int) { order.push_back("first"); });
  event.subscribePost([&](const std::string&, int) { order.push_back("second"); });
  event.subscribePost([&](const std::string&, int) { order.push_back("third"); });
  event.fire("", 0);
  EXPECT_EQ(order, (Heard{"first", "second", "third"}));
}

TEST(Notification, BoundMemberIsUnsubscribedByAnEqualOne) {
  Event event;
  Listener stays;
  Listener goes;
  event.subscribePost(boost::bind(&Listener::hear, &goes, _1, _2));
  event.subscribePost(boost::bind(&Listener::overhear, &goes, _1, _2));
  event.subscribePost(boost::bind(&Listener::hear, &stays, _1, _2));
  event.unsubscribePost(boost::bind(&Listener::hear, &goes, _1, _2));
  event.fire("text", 1);
  EXPECT_EQ(goes.heard, Heard{"overheard text"});
  EXPECT_EQ(stays.heard, Heard{"text 1"});
}

TEST(Notification, EveryEqualHandlerIsUnsubscribed) {
  Event event;
  Listener listener;
  event.subscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
  event.subscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
  event.fire("twice", 1);
  EXPECT_EQ(listener.heard.size(), 2U);
  event.unsubscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
  event.fire("never", 1);
  EXPECT_EQ(listener.heard.size(), 2U);
}

TEST(Notification, UnsubscribingAStrangerChangesNothing) {
  Event event;
  Listener listener;
  Listener stranger;
  event.unsubscribePost(boost::bind(&Listener::hear, &stranger, _1, _2));
  event.subscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
  event.unsubscribePost(boost::bind(&Listener::hear, &stranger, _1, _2));
  event.fire("text", 1);
  EXPECT_EQ(listener.heard, Heard{"text 1"});
}

TEST(Notification, HandlerMaySubscribeAndIsHeardFromTheNextFiringOn) {
  Event event;
  int calls = 0;
  event.subscribePost([&](const std::string&, int) {
    event.subscribePost([&](const std::string&, int) { ++calls; });
  });
  event.fire("", 0);
  EXPECT_EQ(calls, 0);
  event.fire("", 0);
  EXPECT_EQ(calls, 1);
}

struct Once {
  Event& event;
  int calls = 0;

  void call(const std::string& /*text*/, int /*number*/) {
    ++calls;
    event.unsubscribePost(boost::bind(&Once::call, this, _1, _2));
  }
};

TEST(Notification, HandlerMayUnsubscribeItself) {
  Event event;
  Once once{event};
  Listener behind;
  event.subscribePost(boost::bind(&Once::call, &once, _1, _2));
  event.subscribePost(boost::bind(&Listener::hear, &behind, _1, _2));
  event.fire("a", 1);
  event.fire("b", 2);
  EXPECT_EQ(once.calls, 1);
  EXPECT_EQ(behind.heard, (Heard{"a 1", "b 2"}));
}

TEST(Notification, MayBeUsedFromManyThreads) {
  Event event;
  std::atomic<int> calls = 0;
  event.subscribePost([&](const std::string&, int) { ++calls; });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      Listener listener;
      for (int i = 0; i < 200; ++i) {
        event.subscribePost([](const std::string&, int) {});
        event.fire("text", i);
        event.unsubscribePost(boost::bind(&Listener::hear, &listener, _1, _2));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(calls, 800);
}

}  // namespace
