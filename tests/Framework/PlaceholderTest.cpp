#include <gtest/gtest.h>
TEST(Placeholder, Framework) {}
