// The file of reports.
#include "Reports.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <stdexcept>
#include <thread>

#include "Fakes.h"
#include "support/Files.h"

namespace {

using lumtest::MakeCall;
using lumtest::ReadFile;

LumJson::Value Parsed(const std::string& text) {
  LumJson::Value document;
  EXPECT_TRUE(document.Parse(text)) << text;
  return document;
}

class ReportsTest : public testing::Test {
 protected:
  lumtest::TempDir m_temp;
  const RootDir m_root{m_temp.Path()};
  const std::string m_file = m_temp.Path("reports.jsonl");
};

TEST_F(ReportsTest, StoresOneCompactDocumentALine) {
  Reports reports(m_root);
  const Call call = MakeCall("POST", "/report");
  EXPECT_EQ(reports.Store(call, Parsed("{\n \"a\" : [1, 2.5,\"x\\ny\"]}")).body,
            "{\n    \"stored\": 1\n}\n");
  reports.Store(call, Parsed("\"text \\\"quoted\\\"\""));
  reports.Store(call, Parsed("null"));
  EXPECT_EQ(reports.Store(call, Parsed("[]")).body, "{\n    \"stored\": 4\n}\n");
  EXPECT_EQ(ReadFile(m_file), "{\"a\":[1,2.5,\"x\\ny\"]}\n\"text \\\"quoted\\\"\"\nnull\n[]\n");
}

TEST_F(ReportsTest, CanAnswer204) {
  Reports reports(m_root);
  const Reply reply = reports.Store(MakeCall("POST", "/report?status=204"), Parsed("1"));
  EXPECT_EQ(reply.status, 204);
  EXPECT_EQ(reply.body, "");
  EXPECT_EQ(ReadFile(m_file), "1\n");
  EXPECT_EQ(reports.Store(MakeCall("POST", "/report?status=201"), Parsed("2")).status, 400);
  EXPECT_EQ(ReadFile(m_file), "1\n");
}

TEST_F(ReportsTest, GoesOnWhereItEnded) {
  Reports(m_root).Store(MakeCall("POST", "/report"), Parsed("1"));
  EXPECT_EQ(Reports(m_root).Store(MakeCall("POST", "/report"), Parsed("2")).body,
            "{\n    \"stored\": 2\n}\n");
  EXPECT_EQ(ReadFile(m_file), "1\n2\n");
}

TEST_F(ReportsTest, AnOpenLineDoesNotSwallowTheNextDocument) {
  m_temp.Write("reports.jsonl", "1\n{\"cut");
  Reports(m_root).Store(MakeCall("POST", "/report"), Parsed("2"));
  EXPECT_EQ(ReadFile(m_file), "1\n{\"cut\n2\n");
}

TEST_F(ReportsTest, ShowsTheStartOfADocument) {
  Reports reports(m_root);
  const Call call = MakeCall("POST", "/report");
  const Note shortNote = reports.Store(call, Parsed("{\"a\":1}")).note;
  EXPECT_EQ(shortNote.kind, Note::Kind::kReport);
  EXPECT_EQ(shortNote.text, "{\"a\":1}");
  // 199 bytes, then a character of two bytes across the limit.
  const std::string text = "\"" + std::string(198, 'a') + "\xC3\xA9zzz\"";
  EXPECT_EQ(reports.Store(call, Parsed(text)).note.text, text.substr(0, 199) + "...");
}

TEST_F(ReportsTest, ThreadsDoNotMixTheirLines) {
  Reports reports(m_root);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&reports, i] {
      for (int j = 0; j < 100; ++j) {
        reports.Store(MakeCall("POST", "/report"),
                      LumJson::Value(std::string(1000, static_cast<char>('a' + i))));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::string content = ReadFile(m_file);
  EXPECT_EQ(content.size(), 400u * 1003);
  for (std::size_t at = 0; at < content.size(); at += 1003) {
    EXPECT_EQ(content.substr(at, 1003), "\"" + std::string(1000, content[at + 1]) + "\"\n");
  }
}

TEST_F(ReportsTest, AFileThatCannotGrowKeepsWholeLines) {
  Reports reports(m_root);
  const Call call = MakeCall("POST", "/report");
  ASSERT_EQ(reports.Store(call, Parsed("\"first\"")).status, 200);
  // The next line fits in part, then not at all.
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {20, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const Reply half = reports.Store(call, LumJson::Value(std::string(50, 'x')));
  const Reply small = reports.Store(call, Parsed("2"));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(half.status, 507);
  EXPECT_EQ(small.status, 200);
  EXPECT_EQ(ReadFile(m_file), "\"first\"\n2\n");
}

TEST_F(ReportsTest, AFileThatCannotBeUsedIsNamed) {
  m_temp.MakeDir("reports.jsonl");
  try {
    Reports reports(m_root);
    FAIL() << "a directory was taken for a file";
  } catch (const std::runtime_error& failure) {
    EXPECT_NE(std::string(failure.what()).find(m_file), std::string::npos);
  }
}

}  // namespace
