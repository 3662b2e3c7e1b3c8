#pragma once

namespace veldra {

class Deadline;

/// What a query is held to. Internal.
struct QueryTerms {
  const Deadline* deadline = nullptr;  ///< ends it; lives as long as the query
  bool refuses_changes = false;        ///< only what `Statement::is_query` calls one may run
};

}  // namespace veldra
