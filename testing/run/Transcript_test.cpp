#include "testing/run/Transcript.h"

#include "testing/run/HostTest.h"

namespace {

using TranscriptReplayTest = HostTest;

constexpr const char* kRight =
    "# A file is moved.\n"
    "given f 0600 /etc/zuv/a \"one\\n\"\n"
    "with env WHO=me\n"
    "\n"
    "$ /bin/sh -c 'echo \"$WHO \"; echo $WHO; printf end; echo no >&2; mv /etc/zuv/a /etc/zuv/b; exit 3'\n"
    ">q \"me \\n\"\n"
    "> me\n"
    ">q \"end\"\n"
    "! no\n"
    "= 3\n"
    "\n"
    "tree /etc/zuv\n"
    "f 0600 b \"one\\n\"\n"
    "d 0755 profiles\n";

struct Replay {
  const char* why;
  std::string text;
  std::string replayed;  // empty: the same text
};

const Replay kReplays[] = {
    {"a correct transcript is returned unchanged", kRight, ""},
    {"a tree is added to a transcript without one", "$ /bin/true\n= 0\n",
     "$ /bin/true\n= 0\ntree /etc/zuv\nd 0755 profiles\n"},
    {"`unchanged` is kept if the tree is unchanged",
     "given f 0600 /etc/zuv/a \"\"\n$ /bin/cat /etc/zuv/a\n= 0\n\ntree /etc/zuv unchanged\n", ""},
    {"`unchanged` is replaced if the tree has changed",
     "given f 0600 /etc/zuv/a \"\"\n$ /bin/rm /etc/zuv/a\n= 0\n\ntree /etc/zuv unchanged\n",
     "given f 0600 /etc/zuv/a \"\"\n$ /bin/rm /etc/zuv/a\n= 0\n\ntree /etc/zuv\nd 0755 profiles\n"},
    {"dots match any content of a file",
     "given profile p lab\ngiven running p\n$ /bin/true\n= 0\n\ntree /etc/zuv/profiles/p\nf 0644 hip.conf \"\"\n"
     "f 0644 hipvars.txt ...\nf 0640 profile_name \"lab\\n\"\n",
     ""},
    {"dots do not match a file of another mode", "given f 0644 /run/a x\n$ /bin/true\n= 0\n\ntree /run\nf 0600 a ...\n",
     "given f 0644 /run/a x\n$ /bin/true\n= 0\n\ntree /run\nf 0644 a \"x\"\n"},
    {"a signal is shown", "$ /bin/sh -c 'kill -9 $$'\n\ntree /run\n",
     "$ /bin/sh -c 'kill -9 $$'\n= signal 9\n\ntree /run\n"},
    {"every `given` line takes effect",
     "given d 0700 /run/d\ngiven f 0600 '/run/with blank' \"\\xff\"\ngiven l /run/l -> d\ngiven p 0620 /run/p\n"
     "given f 0644 /run/gone x\ngiven absent /run/gone\ngiven mode 0711 /run/d\n"
     "given recorder /bin/systemctl 4\ngiven script /run/d/s \"echo hello\\n\"\ngiven daemon\n"
     "given disk /run/disk 4096\n"
     "$ /bin/systemctl start hip\n= 4\n$ /run/d/s\n> hello\n= 0\n$ /usr/bin/test -x /usr/sbin/hip\n= 0\n\n"
     "tree /run\nf 0644 calls \"systemctl start hip\\n\"\nd 0711 d\nf 0755 d/s \"#!/bin/sh\\necho hello\\n\"\n"
     "d 0755 disk\nl l -> d\np 0620 p\nf 0600 with blank \"\\xff\"\n",
     ""},
    {"every `with` line takes effect",
     "with umask 077\nwith bound-by-modes\nwith file-limit 2\nwith input \"in\\n\"\nwith folder /run\nwith env A=b\n"
     "given f 0000 /run/closed \"\"\n"
     "$ /bin/sh -c 'umask; pwd; cat; echo $A; test -r closed || echo closed; ulimit -f'\n"
     "> 0077\n> /run\n> in\n> b\n> closed\n> 0\n= 0\n"
     "with nothing\n$ /bin/sh -c 'umask; pwd; test -r /run/closed; echo $?'\n> 0022\n> /\n> 0\n= 0\n"
     "with closed 2\n$ /bin/sh -c 'test -e /proc/self/fd/2 || echo none'\n> none\n= 0\n"
     "with nothing\nwith output /dev/full\n$ /bin/cat /proc/version\n"
     "! /bin/cat: write error: No space left on device\n= 1\n"
     "with nothing\nwith reader-gone\n$ /bin/sh -c 'trap \"\" PIPE; cat /proc/version'\n"
     "! cat: write error: Broken pipe\n= 1\n"
     "\ntree /etc/zuv unchanged\n",
     ""},
};

TEST_F(TranscriptReplayTest, TheActualResultsReplaceWrongOnesAndNothingElse) {
  for (const Replay& replay : kReplays) {
    SCOPED_TRACE(replay.why);
    host::reset();
    EXPECT_EQ(replayTranscript(replay.text), replay.replayed.empty() ? replay.text : replay.replayed);
  }
}

TEST_F(TranscriptReplayTest, MissingResultLinesAreAdded) {
  const std::string right = kRight;
  for (const char* part :
       {">q \"me \\n\"\n", "> me\n", ">q \"end\"\n", "! no\n", "= 3\n", "f 0600 b \"one\\n\"\n", "d 0755 profiles\n"}) {
    SCOPED_TRACE(part);
    std::string without = right;
    without.erase(right.find(part), std::string(part).size());
    host::reset();
    EXPECT_EQ(replayTranscript(without), right);
  }
}

TEST_F(TranscriptReplayTest, ACommandRunsAsAnotherUserOrTheNeedIsReported) {
  const std::string text = "with uid 1000\n$ /usr/bin/id -u\n> 1000\n= 0\n\ntree /run\n";
  if (hasOtherUsers()) {
    EXPECT_EQ(replayTranscript(text), text);
  } else {
    EXPECT_THROW((void)replayTranscript(text), TranscriptNeeds);
  }
}

TEST_F(TranscriptReplayTest, LinesThatCannotBeParsedAreRefused) {
  for (const char* wrong : {"ravctl\n", "given what\n", "given f 0600 /run/x\n", "with much\n", "$ 'open\n",
                            "> early\n", "given d what /run/x\n"}) {
    EXPECT_THROW((void)replayTranscript(wrong), std::runtime_error) << wrong;
  }
}

TEST(SplitWords, QuotesAndBackslashesKeepBlanksInsideAWord) {
  const struct {
    const char* line;
    std::vector<std::string> words;
  } cases[] = {
      {"", {}},
      {"  a  b ", {"a", "b"}},
      {"'' \"\"", {"", ""}},
      {"'a b'c\"d\\n\\x41\"e", {"a bcd\nAe"}},
      {"a\\ b \\'", {"a b", "'"}},
      {"'{\"k\": \"v\"}'", {"{\"k\": \"v\"}"}},
  };
  for (const auto& c : cases) EXPECT_EQ(splitWords(c.line), c.words) << c.line;
}

}  // namespace
