// Matchers: GoogleTest support for the product's status values.
#pragma once

#include <gmock/gmock.h>

#include <iosfwd>
#include <string>

#include "command/status/StatusCodes.h"

// Returns the name of a code in the source and its number: "status::openError (0x14000005)". Returns only the number if
// the code has no name.
std::string nameOfCode(StatusCode code);

// GoogleTest calls it to print a status in a failure message.
void PrintTo(const Status& status, std::ostream* out);

// Matches a status, or a status code, that has this code:
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
