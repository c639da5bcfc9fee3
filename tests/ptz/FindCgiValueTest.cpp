#include "ptz/FindCgiValue.h"

#include <gtest/gtest.h>

namespace sarnevo {
namespace {

TEST(FindCgiValue, TakesTheFirstValueBehindTheKey) {
  struct Row {
    const char* name;
    const char* text;
    const char* value;
  };
  constexpr Row kRows[] = {
      {"a line", "serial_device=1\r\n", "1"},
      {"a line among others", "serial_baud=9600\nserial_device=2\nserial_stop=1\n", "2"},
      {"up to markup", "<p>serial_device=1<br>serial_x=3", "1"},
      {"up to the end", "serial_device=12", "12"},
      {"up to a carriage return", "serial_device=1\rx", "1"},
      {"the first of two keys", "serial_device=1\nserial_device=2", "1"},
      {"a separator further on", "serial_device\nother=7\n", "7"},
      {"a longer key counts", "serial_device_2=5\nserial_device=1", "5"},
      {"an earlier separator doesn't count", "a=9 serial_device=1", "1"},
      {"an empty value", "serial_device=\n1", ""},
      {"no separator", "a=1\nserial_device", ""},
      {"no key", "serial_devic=1", ""},
      {"no text", "", ""},
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(FindCgiValue(row.text, "serial_device", "="), row.value) << row.name;
  }
}

}  // namespace
}  // namespace sarnevo
