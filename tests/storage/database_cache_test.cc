// Databases are opened once, shared while they are held, and closed when there are too many.
#include "veldra/storage/database_cache.h"

#include <sqlite3.h>

#include <fstream>
#include <map>

#include "support/database_test.h"

namespace veldra {
namespace {

class DatabaseCacheTest : public testing::Test {
 protected:
  std::filesystem::path path(const std::string& name) const { return directory / name; }
  bool is_open(const std::string& name) const {
    return std::filesystem::exists(path(name).string() + "-wal");
  }

  const TempDirectory directory;
  const LogCapture quiet;
};

TEST_F(DatabaseCacheTest, AFileIsOneObjectWhileItIsHeldByWhateverName) {
  DatabaseCache cache(4);
  const auto db = cache.open(path("a.db"));
  EXPECT_EQ(db->db_path, std::filesystem::canonical(path("a.db")));
  EXPECT_EQ(db->get_stats().at("files"), 0) << "no schema";
  std::filesystem::create_symlink(path("a.db"), path("link.db"));
  for (const auto& other : {path("a.db"), path("link.db"), directory / "." / "x/../a.db",
                            std::filesystem::relative(path("a.db"))})
    EXPECT_EQ(cache.open(other), db) << other;
  db->close();
  EXPECT_EQ(cache.size(), 0U);
  const auto again = cache.open(path("a.db"));
  EXPECT_NE(again, db) << "one that its holder has closed";
  EXPECT_FALSE(again->closed());
  EXPECT_EQ(cache.size(), 1U);
}

TEST_F(DatabaseCacheTest, AFileThatWasReplacedIsOpenedAnew) {
  const auto put = [this](const std::string& content) {
    for (const char* const suffix : {"", "-wal", "-shm"})
      std::filesystem::remove(path("a.db").string() + suffix);
    Database other(path("other.db"));
    other.connect();
    other.create_schema();
    other.execute("INSERT INTO components (name, path) VALUES (?, '')", {content}).close();
    other.export_to(path("a.db"));
    other.close();
    std::filesystem::remove(path("other.db"));
  };
  const auto content = [](Database& db) {
    return std::string((*db.fetchone("SELECT name FROM components"))[0].as_text());
  };
  DatabaseCache cache(4);
  put("first");
  EXPECT_EQ(content(*cache.open(path("a.db"))), "first");
  put("second");
  const auto second = cache.open(path("a.db"));
  EXPECT_EQ(content(*second), "second") << "of one that nobody holds";
  put("third");
  const auto third = cache.open(path("a.db"));
  EXPECT_EQ(content(*third), "third") << "of one that is held";
  EXPECT_EQ(content(*second), "second");
  EXPECT_EQ(cache.open(path("a.db")), third);
  third->transaction([](Cursor& cursor) { cursor.execute("DELETE FROM components"); });
  std::filesystem::remove(path("a.db"));
  EXPECT_EQ(cache.open(path("a.db"))->get_stats().at("files"), 0) << "of one that is gone";
  EXPECT_EQ(cache.size(), 1U);
}

TEST_F(DatabaseCacheTest, TooManyAreClosedAmongThoseThatNobodyHoldsTheLongestReturnedFirst) {
  DatabaseCache cache(2);
  auto a = cache.open(path("a"));
  auto b = cache.open(path("b"));
  auto c = cache.open(path("c"));
  EXPECT_EQ(cache.size(), 3U) << "one that is held was closed";
  b.reset();
  a.reset();
  cache.open(path("c"));
  EXPECT_FALSE(is_open("b")) << "returned first";
  EXPECT_TRUE(is_open("a") && is_open("c"));
  cache.open(path("b"));
  EXPECT_FALSE(is_open("a")) << "returned before";
  EXPECT_TRUE(is_open("b") && is_open("c"));
  EXPECT_EQ(cache.size(), 2U);
  b = cache.open(path("b"));
  b->close();
  c.reset();
  cache.open(path("a"));
  EXPECT_TRUE(is_open("a") && is_open("c")) << "one that its holder has closed was counted";
}

TEST_F(DatabaseCacheTest, OpeningOneFileIsDoneOnceAndMakesNobodyWaitForAnother) {
  DatabaseCache cache(2);
  cache.open(path("early"));
  {
    // Whoever opens it first needs the write lock for its schema.
    Connection other(path("slow"));
    other.execute("PRAGMA journal_mode=WAL");
    other.execute("BEGIN IMMEDIATE");
    std::vector<std::future<std::shared_ptr<Database>>> opening;
    for (int i = 0; i < 2; ++i)
      opening.push_back(std::async(std::launch::async, [&] { return cache.open(path("slow")); }));
    EXPECT_FALSE(finished(opening[1], 50ms));
    EXPECT_NE(cache.open(path("quick")), nullptr);
    EXPECT_TRUE(is_open("early")) << "closed for one that was not open yet";
    other.execute("ROLLBACK");
    EXPECT_EQ(opening[0].get(), opening[1].get());
  }
  std::ofstream(path("text")) << std::string(200, 'x');
  for (int i = 0; i < 2; ++i) EXPECT_THROW(cache.open(path("text")), Error);
  std::filesystem::remove(path("text"));
  EXPECT_NO_THROW(cache.open(path("text"))) << "a failure was kept";
}

TEST_F(DatabaseCacheTest, WhatNobodyHoldsForAWhileGivesMemoryBackAndAnswersAsBefore) {
  const auto cached = [](Connection& connection) {
    int bytes = 0, highest = 0;
    sqlite3_db_status(connection.handle(), SQLITE_DBSTATUS_CACHE_USED, &bytes, &highest, 0);
    return bytes;
  };
  DatabaseCache cache = Access::cache(4, 0ms);
  std::map<std::string, std::shared_ptr<Database>> held;
  std::map<std::string, int> of_writer, of_reader;
  for (const char* const name : {"held", "idle"}) {
    Database& db = *(held[name] = cache.open(path(name)));
    db.snapshot([&](Snapshot&) { EXPECT_EQ(db.get_stats().at("files"), 0); });
    of_writer[name] = cached(*db.connection());
    of_reader[name] = cached(*Access::readers(db)->lease());
  }
  const Database& idle = *held["idle"];
  held.erase("idle");
  cache.open(path("another"));
  EXPECT_EQ(held["held"]->activity().readers_open, 2) << "of one that is held";
  EXPECT_EQ(idle.activity().readers_open, 1);
  EXPECT_EQ(cached(*held["held"]->connection()), of_writer["held"]);
  EXPECT_LT(cached(*idle.connection()), of_writer["idle"]);
  EXPECT_LT(cached(*Access::readers(idle)->lease()), of_reader["idle"]);
  EXPECT_EQ(cache.open(path("idle"))->get_stats().at("files"), 0);
}

TEST_F(DatabaseCacheTest, ClosesAllAndLeavesToItsHoldersWhatTheyHold) {
  EXPECT_THROW(DatabaseCache none(0), ProgrammingError);
  std::shared_ptr<Database> kept;
  {
    DatabaseCache cache(3);
    EXPECT_THROW(cache.open(":memory:"), ProgrammingError);
    kept = cache.open(path("kept"));
    cache.open(path("idle"));
    EXPECT_TRUE(is_open("idle"));
  }
  EXPECT_FALSE(is_open("idle"));
  EXPECT_EQ(kept->get_stats().at("files"), 0) << "closed under its holder";
  kept.reset();
  EXPECT_FALSE(is_open("kept"));

  DatabaseCache cache(3);
  kept = cache.open(path("kept"));
  cache.close();
  cache.close();
  EXPECT_TRUE(kept->closed());
  EXPECT_THAT([&] { cache.open(path("kept")); },
              ThrowsMessage<RuntimeError>("The database cache is closed."));
  EXPECT_EQ(cache.size(), 0U);
}

}  // namespace
}  // namespace veldra
