// The framework's string and hash-map types.
//   Mel::String name = "Nexthop";
//   Mel::HashMap<uint32_t, Mel::String> byId;
#pragma once

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>
#include <string>

namespace Mel {

using String = std::string;

template <class K, class V, class H = boost::hash<K>, class E = std::equal_to<K>>
using HashMap = boost::unordered_flat_map<K, V, H, E>;

template <class K, class H = boost::hash<K>, class E = std::equal_to<K>>
using HashSet = boost::unordered_flat_set<K, H, E>;

} // namespace Mel
