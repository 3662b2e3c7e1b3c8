#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/database_test_access.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/statement_log.h"
#include "support/temp_database.h"

// What the tests of `Database` share.
namespace veldra {

using namespace std::chrono_literals;
using Access = DatabaseTestAccess;
using ::testing::ContainsRegex, ::testing::MatchesRegex, ::testing::StartsWith;
using ::testing::ElementsAre, ::testing::IsEmpty, ::testing::ThrowsMessage;

}  // namespace veldra
