// Matchers of the product's own types.
#pragma once

#include <gmock/gmock.h>

#include <iosfwd>
#include <string>

#include "command/status/StatusCodes.h"

// The name of a code as the source spells it ("status::openError"), with its number; the number alone for others.
std::string nameOfCode(StatusCode code);

// Found by GoogleTest: how a status reads in a failure message.
void PrintTo(const Status& status, std::ostream* out);

// EXPECT_THAT(store.list(&records), HasCode(status::openError));
class HasCode {
 public:
  using is_gtest_matcher = void;
  explicit HasCode(StatusCode expected) : expected_(expected) {}
  bool MatchAndExplain(const Status& status, std::ostream* out) const;
  bool MatchAndExplain(StatusCode code, std::ostream* out) const;
  void DescribeTo(std::ostream* out) const;
  void DescribeNegationTo(std::ostream* out) const;

 private:
  const StatusCode expected_;
};
