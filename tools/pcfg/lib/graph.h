// pcfg graph: the peripheral topology as a Graphviz DOT digraph. Registry entries are nodes,
// shaped and coloured by peripheral type; solid edges run from a dependency to the peripheral
// that lists it (the bring-up direction); dashed edges run from a camera to the camera sets and
// logical cameras it belongs to; each camera set is drawn as a cluster around its members.
// Ids that are referenced but not registered are drawn as red dashed outlines.
#pragma once

#include <string>

#include "config.h"

namespace pcfg {

std::string GraphDot(const ConfigIndex& index);

}  // namespace pcfg
