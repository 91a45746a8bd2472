#include <gtest/gtest.h>

#include "tests/model/lockstep.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return model::takeArguments(argc, argv) ? RUN_ALL_TESTS() : 2;
}
