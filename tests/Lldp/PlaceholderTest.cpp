#include <gtest/gtest.h>
TEST(Placeholder, Lldp) {}
