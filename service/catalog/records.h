#pragma once

#include <string>

#include "platform/json/json_spirit.h"
#include "service/store/store.h"

namespace zqpool::service {

// The records of the catalog, made from rows of the state.

/// An object that the state keeps as one text.
Object kept_object(const Store::Query& row, int column);

/// One row of catalog_pool, whose columns begin the row, as it is kept; without its attributes.
Object pool_description(const Store::Query& row);
constexpr int pool_attributes = 6;  ///< the last column of catalog_pool

/// Throws Refusal (404) when there is no such pool.
void need_pool(Store& store, const std::string& uuid);

/// One row of catalog_device, whose columns begin the row, as it is kept; without its attributes.
Object device_description(const Store::Query& row);
constexpr int device_attributes = 13;  ///< the last column of catalog_device

/// A device as it is answered.
Object device_record(const Store::Query& row);

}  // namespace zqpool::service
