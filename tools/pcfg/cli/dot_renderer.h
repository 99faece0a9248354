// Renders DOT to an image with Graphviz's dot(1), run as a child process.
#pragma once

#include <string>

namespace pcfg::cli {

enum class Render { kOk, kNoDot, kFailed };

// Feeds DOT to `dot -TFORMAT` and collects what it prints into IMAGE; dot's own messages go to
// our stderr. kNoDot when dot is not on PATH; kFailed with a reason in ERROR otherwise.
Render RenderWithDot(const std::string& dot, const std::string& format, std::string* image,
                     std::string* error);

}  // namespace pcfg::cli
