// JSON that pcfg prints for scripts. File names, ids and parser excerpts may hold bytes that are
// not UTF-8, which JSON cannot carry: they are written as U+FFFD instead of failing the output.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>

namespace pcfg {

using Json = nlohmann::ordered_json;

inline void PrintJson(std::ostream& out, const Json& json) {
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace pcfg
