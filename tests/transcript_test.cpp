// Replays every file of tests/transcripts. Each file is one test.
#include <algorithm>
#include <filesystem>

#include "testing/host/Places.h"
#include "testing/run/HostTest.h"
#include "testing/run/Session.h"
#include "testing/run/Transcript.h"

namespace {

std::vector<std::string> transcripts() {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(places::source() + "/tests/transcripts")) {
    if (entry.path().extension() == ".transcript") paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

std::string nameOf(const testing::TestParamInfo<std::string>& info) {
  std::string name = std::filesystem::path(info.param).stem();
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

class Transcript : public HostTest, public testing::WithParamInterface<std::string> {};

TEST_P(Transcript, ReplaysWithTheSameResults) {
  const std::string text = host::readFile(GetParam());
  std::string replayed;
  try {
    replayed = replayTranscript(text);
  } catch (const TranscriptNeeds& need) {
    GTEST_SKIP() << "needs " << need.what();
  }
  if (text == replayed) return;
  ADD_FAILURE() << GetParam() << ", expected (-) and actual (+):\n"
                << testing::internal::edit_distance::CreateUnifiedDiff(linesOf(text), linesOf(replayed))
                << "The actual transcript:\n"
                << replayed;
}

INSTANTIATE_TEST_SUITE_P(All, Transcript, testing::ValuesIn(transcripts()), nameOf);

}  // namespace
