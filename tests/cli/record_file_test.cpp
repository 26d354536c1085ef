// The posting file read in passes: a file that reads differently on the
// posting pass than on the checking pass is refused, a pipe is read once and
// kept, and the line numbers of its reports count every line.
#include "cli/record_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kvctb_process.h"

namespace kvc::cli::testing {
namespace {

void Write(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

std::vector<std::string> Texts(RecordFile& file) {
  std::vector<std::string> texts;
  file.ForEach([&](const NumberedRecord& r) { texts.push_back(r.text); });
  return texts;
}

// Found in review: the posting pass used to compare only the number of
// records with the checking pass, so a file rewritten in place meanwhile
// with as many records would have been posted unchecked.
TEST(RecordFileTest, AFileRewrittenBetweenThePassesIsRefused) {
  const std::string path = NewDirectory("record_file") + "/entries.txt";
  const std::string records = TwoRecords();
  Write(path, records);
  RecordFile file(path, false, false);
  EXPECT_EQ(file.Records(), 2u);
  EXPECT_EQ(Texts(file).size(), 2u);  // read again, unchanged

  // The same length and the same number of records, one digit of an amount
  // changed.
  std::string changed = records;
  const size_t digit = changed.find_first_of("123456789", 40);
  ASSERT_NE(digit, std::string::npos);
  changed[digit] = changed[digit] == '9' ? '8' : static_cast<char>(changed[digit] + 1);
  Write(path, changed);
  size_t visited = 0;
  try {
    file.ForEach([&](const NumberedRecord&) { ++visited; });
    ADD_FAILURE() << "the changed file was read as the checked one";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("changed while it was being posted"), std::string::npos)
        << e.what();
  }
}

// Found in review: a pipe (a named one, or a process substitution) cannot be
// read from its start again; it is copied on the first pass.
TEST(RecordFileTest, APipeIsReadOnceAndEveryPassReadsItsCopy) {
  const std::string path = NewDirectory("record_file_fifo") + "/entries.fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0) << std::strerror(errno);
  const std::string records = TwoRecords();
  std::thread writer([&] {
    // Waits for the reader without blocking for ever should it never come.
    int fd = -1;
    for (int tries = 0; tries < 1000 && fd < 0; ++tries) {
      fd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
      if (fd < 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (fd < 0) return;
    fcntl(fd, F_SETFL, 0);
    size_t written = 0;
    while (written < records.size()) {
      const ssize_t n = write(fd, records.data() + written, records.size() - written);
      if (n <= 0) break;
      written += static_cast<size_t>(n);
    }
    close(fd);
  });
  try {
    RecordFile file(path, false, false);
    writer.join();
    EXPECT_EQ(file.Records(), 2u);
    EXPECT_EQ(Texts(file).size(), 2u);
    EXPECT_EQ(Texts(file).size(), 2u);
  } catch (const std::exception& e) {
    writer.join();
    ADD_FAILURE() << e.what();
  }
}

// Found in review: a file of blank lines only was reported on line 1.
TEST(RecordFileTest, AFileOfBlankLinesIsReportedOnItsLastLine) {
  const std::string path = NewDirectory("record_file_blank") + "/entries.txt";
  Write(path, "\n\r\n\n");
  try {
    RecordFile file(path, false, false);
    ADD_FAILURE() << "a file without records was accepted";
  } catch (const FileError& e) {
    EXPECT_EQ(std::string(e.what()), path + ":3: no records");
  }
}

// Found in review: standard input with nothing in it was reported as a
// failure to keep it in a temporary file.
TEST(RecordFileTest, EmptyStandardInputHasNoRecords) {
  const std::string db = NewDirectory("record_file_stdin") + "/books.db";
  const RunResult r = RunKvctb({"--db", "sqlite:" + db, "post", "-"}, {"", {}, ""});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("-:1: no records"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace kvc::cli::testing
