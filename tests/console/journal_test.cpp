// SPDX-License-Identifier: MIT
// The journal, and the events that a page gets of it.
#include "Journal.h"

#include <gmock/gmock.h>

#include <thread>

#include "EventStream.h"

namespace {

using kel::console::EventStream;
using kel::console::Journal;
using kel::console::Json;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

constexpr milliseconds kNoWait{0};

TEST(JournalTest, EntriesComeInTheirOrderAndOnce) {
  Journal journal;
  for (const char* entry : {"a", "b", "c"}) journal.add(entry);
  const Journal::Batch first = journal.after(0, 2, kNoWait);
  ASSERT_EQ(first.entries.size(), 2u);
  EXPECT_EQ(*first.entries[0] + *first.entries[1], "ab");
  const Journal::Batch second = journal.after(first.position, 2, kNoWait);
  ASSERT_EQ(second.entries.size(), 1u);
  EXPECT_EQ(*second.entries[0], "c");
  EXPECT_TRUE(journal.after(second.position, 2, kNoWait).entries.empty());
}

TEST(JournalTest, WhoIsTooSlowIsToldHowMuchWasMissed) {
  Journal journal(3);
  for (int i = 0; i < 5; ++i) journal.add(std::to_string(i));
  const Journal::Batch batch = journal.after(1, 10, kNoWait);
  EXPECT_EQ(batch.missed, 1u);
  ASSERT_EQ(batch.entries.size(), 3u);
  EXPECT_EQ(*batch.entries[0], "2");
}

TEST(JournalTest, TheBytesThatAreKeptAreLimitedToo) {
  Journal journal(100, 10);
  journal.add("123456");
  journal.add("123456");
  EXPECT_EQ(journal.after(0, 10, kNoWait).missed, 1u);
  journal.add("12345678901234567890");
  EXPECT_EQ(journal.after(2, 10, kNoWait).entries.size(), 1u);
}

TEST(JournalTest, AnEntryEndsTheWaitingForOne) {
  Journal journal;
  std::thread writer([&] { journal.add("a"); });
  EXPECT_EQ(journal.after(0, 1, milliseconds(60000)).entries.size(), 1u);
  writer.join();
}

TEST(JournalTest, TheEndEndsAllWaiting) {
  Journal journal;
  std::thread closer([&] { journal.close(); });
  EXPECT_TRUE(journal.after(0, 1, milliseconds(60000)).isClosed);
  closer.join();
  journal.add("a");
  EXPECT_EQ(journal.position(), 0u);
}

TEST(EventStreamTest, ItBeginsWithASnapshotAndGoesOnWithWhatFollows) {
  Journal journal;
  journal.add(R"({"a":1})");
  EventStream events(journal, [] { return Json{{"all", true}}; });
  EXPECT_EQ(events.next(), "event: snapshot\ndata: {\"all\":true}\n\n");
  journal.add(R"({"b":2})");
  journal.add(R"({"c":3})");
  EXPECT_EQ(events.next(), "event: entries\ndata: [{\"b\":2},{\"c\":3}]\n\n");
}

TEST(EventStreamTest, BehindAGapComesANewSnapshot) {
  Journal journal(2);
  EventStream events(journal, [] { return Json::object(); });
  EXPECT_THAT(events.next(), StartsWith("event: snapshot"));
  for (int i = 0; i < 5; ++i) journal.add("{}");
  EXPECT_THAT(events.next(), HasSubstr(R"(event: missed)"
                                       "\n"
                                       R"(data: {"count":3})"));
  EXPECT_THAT(events.next(), StartsWith("event: snapshot"));
  journal.add("{}");
  EXPECT_THAT(events.next(), StartsWith("event: entries"));
}

TEST(EventStreamTest, TheJournalsEndIsItsOwn) {
  Journal journal;
  EventStream events(journal, [] { return Json::object(); });
  EXPECT_THAT(events.next(), StartsWith("event: snapshot"));
  journal.close();
  EXPECT_EQ(events.next(), "");
}

}  // namespace
