#include <gtest/gtest.h>
#include "ncodecbase/base_services.h"
TEST(DataList, Empty) { CNDataList l; EXPECT_EQ(l.GetParameterCount(), 0); }
