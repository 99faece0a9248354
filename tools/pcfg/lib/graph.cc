#include "graph.h"

#include <set>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "includes/enums.pb.h"

namespace pcfg {
namespace {

struct NodeStyle {
  const char* shape;
  const char* fill;
};

NodeStyle StyleOf(int type) {
  switch (type) {
    case models::PERIPHERAL_TYPE_CAMERA:
      return {"box", "#cfe2f3"};
    case models::PERIPHERAL_TYPE_CAMERASET:
      return {"folder", "#d9ead3"};
    case models::PERIPHERAL_TYPE_LOGICAL_CAMERA:
      return {"component", "#b7e1cd"};
    case models::PERIPHERAL_TYPE_PROJECTOR:
      return {"trapezium", "#fce5cd"};
    case models::PERIPHERAL_TYPE_IMU:
      return {"hexagon", "#ead1dc"};
    case models::PERIPHERAL_TYPE_MAG:
      return {"octagon", "#d9d2e9"};
    case models::PERIPHERAL_TYPE_FLOOD_LED:
      return {"invhouse", "#fff2cc"};
    case models::PERIPHERAL_TYPE_FPGA:
      return {"box3d", "#d9d9d9"};
    case models::PERIPHERAL_TYPE_PROXIMITY_SENSOR:
      return {"ellipse", "#f4cccc"};
    case models::PERIPHERAL_TYPE_AUTOFOCUS:
      return {"parallelogram", "#e6b8af"};
    case models::PERIPHERAL_TYPE_GENERIC:
      return {"ellipse", "#ffffff"};
    default:
      return {"ellipse", "#eeeeee"};
  }
}

// Escapes TEXT for the inside of a DOT string; Graphviz reads \n in a label as a line break.
// Every backslash of TEXT doubles, so a single one followed by a code of three octal digits
// stands for a control character alone: distinct ids stay distinct nodes.
std::string DotEscape(std::string_view text) {
  std::string escaped;
  for (char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\')
      escaped += {'\\', c};
    else if (c == '\n')
      escaped += "\\n";
    else if (byte < 0x20 || byte == 0x7f)
      escaped += {'\\', static_cast<char>('0' + (byte >> 6)), static_cast<char>('0' + (byte >> 3 & 7)),
                  static_cast<char>('0' + (byte & 7))};
    else
      escaped += c;
  }
  return escaped;
}

// Node names use the same escaping as labels, which keeps distinct ids distinct.
std::string DotQuote(std::string_view id) { return "\"" + DotEscape(id) + "\""; }

// Ids longer than this are drawn and named by their start and a number: an id repeated on every
// edge would make the drawing as large as the id times the edges.
constexpr size_t kLongestDrawnId = 128;
constexpr size_t kDrawnStart = 64;

// The first LIMIT bytes of TEXT or fewer, ending on a whole UTF-8 character.
std::string_view StartOf(std::string_view text, size_t limit) {
  size_t end = std::min(limit, text.size());
  while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

std::string ModelLabel(int model) {
  const google::protobuf::EnumValueDescriptor* value =
      models::CameraModel_descriptor()->FindValueByNumber(model);
  if (value == nullptr) return "model " + std::to_string(model);
  const std::string prefix = "CAMERA_MODEL_";
  const std::string& name = value->name();
  return name.compare(0, prefix.size(), prefix) == 0 ? name.substr(prefix.size()) : name;
}

std::string GraphLabel(const Config& config) {
  const DeviceLabel device = DescribeDevice(config);
  std::string label = device.alias.empty() ? device.name : device.alias;
  if (!device.soc.empty()) label += " on " + device.soc;
  return label +
         "\nsolid: dependency -> dependent (bring-up order); dashed: member -> camera set or logical camera";
}

class DotWriter {
 public:
  explicit DotWriter(const ConfigIndex& index) : config_(index.config()), index_(index) {
    for (const models::PhysicalCamera& camera : config_.physical_cameras())
      if (!camera.is_template()) models_.emplace(camera.peripheral_id(), camera.model());
  }

  std::string Write() {
    CollectEdges();
    AssignClusters();
    out_ = "digraph peripherals {\n";
    out_ +=
        "  graph [rankdir=LR, newrank=true, nodesep=0.25, ranksep=0.6, fontname=\"Helvetica\", fontsize=12,";
    out_ += " labelloc=t, label=\"" + DotEscape(GraphLabel(config_)) + "\"];\n";
    out_ += "  node [fontname=\"Helvetica\", fontsize=10, style=filled, penwidth=1];\n";
    out_ += "  edge [color=\"#444444\", arrowsize=0.7];\n";
    for (size_t c = 0; c < clusters_.size(); ++c) {
      out_ += "  subgraph cluster_" + std::to_string(c) + " {\n";
      out_ += "    label=\"" + DotEscape(StartOf(clusters_[c].label, kLongestDrawnId)) + "\"" +
              "; style=\"rounded,dashed\"; color=\"#6aa84f\"; fontcolor=\"#38761d\";\n";
      for (std::string_view id : clusters_[c].nodes) Node(id, "    ");
      out_ += "  }\n";
    }
    for (std::string_view id : nodes_)
      if (!clustered_.count(id)) Node(id, "  ");
    for (const Edge& edge : edges_) {
      out_ += "  " + NodeName(edge.from) + " -> " + NodeName(edge.to);
      if (edge.kind == Edge::kSetMember)
        out_ += " [style=dashed, color=\"#6aa84f\", arrowhead=odiamond]";
      else if (edge.kind == Edge::kLogicalMember)
        out_ += " [style=dashed, color=\"#45818e\", arrowhead=odiamond]";
      out_ += ";\n";
    }
    out_ += "}\n";
    return out_;
  }

 private:
  struct Edge {
    enum Kind { kDependency, kSetMember, kLogicalMember } kind;
    std::string_view from, to;  // ids in the configuration, which outlives the writer
    bool operator<(const Edge& other) const {
      return std::tie(kind, from, to) < std::tie(other.kind, other.from, other.to);
    }
  };
  struct Cluster {
    std::string label;
    std::vector<std::string_view> nodes;
  };

  // Every node once, registry entries first and in registry order.
  void Use(std::string_view id) {
    if (seen_.insert(id).second) nodes_.push_back(id);
  }

  // The DOT name of ID: quoted as it is, or for a long id its start, a backslash (which escaping
  // never leaves alone before "…", so no id is named so) and a number of its own.
  const std::string& NodeName(std::string_view id) {
    auto [name, added] = names_.try_emplace(id);
    if (added) {
      name->second = id.size() <= kLongestDrawnId ? DotQuote(id)
                                                  : "\"" + DotEscape(StartOf(id, kDrawnStart)) + "\\…#" +
                                                        std::to_string(++long_ids_) + "\"";
    }
    return name->second;
  }

  void AddEdge(Edge::Kind kind, std::string_view from, std::string_view to) {
    Use(from);
    Use(to);
    if (edge_set_.insert({kind, from, to}).second) edges_.push_back({kind, from, to});
  }

  void CollectEdges() {
    for (const models::Peripheral& peripheral : config_.peripherals()) Use(peripheral.id());
    for (const models::Peripheral& peripheral : config_.peripherals())
      for (const auto& dependency : peripheral.dependencies())
        AddEdge(Edge::kDependency, dependency.peripheral_id(), peripheral.id());
    for (const models::CameraSet& set : config_.camera_sets())
      for (const std::string& camera : set.camera_peripheral_ids())
        AddEdge(Edge::kSetMember, camera, set.peripheral_id());
    for (const models::PhysicalCamera& camera : config_.physical_cameras())
      if (!camera.is_template())
        for (const std::string& set : camera.cameraset_peripheral_ids())
          AddEdge(Edge::kSetMember, camera.peripheral_id(), set);
    for (const models::LogicalCamera& logical : config_.logical_cameras())
      for (const std::string& camera : logical.camera_peripheral_ids())
        AddEdge(Edge::kLogicalMember, camera, logical.peripheral_id());
  }

  // A node can be drawn in one cluster only: a camera in several sets goes into the first set
  // that claims it, and its dashed edges show the others.
  void AssignClusters() {
    std::unordered_map<std::string_view, std::vector<std::string_view>> members;  // set -> cameras
    for (const Edge& edge : edges_)
      if (edge.kind == Edge::kSetMember) members[edge.to].push_back(edge.from);
    std::unordered_set<std::string> done;
    for (const models::CameraSet& set : config_.camera_sets()) {
      const std::string& id = set.peripheral_id();
      if (!done.insert(id).second || clustered_.count(id)) continue;
      Use(id);
      Cluster cluster{id, {}};
      for (std::string_view node : members[id])
        if (clustered_.insert(node).second) cluster.nodes.push_back(node);
      clustered_.insert(id);
      cluster.nodes.push_back(id);
      clusters_.push_back(std::move(cluster));
    }
  }

  void Node(std::string_view id, const char* indent) {
    out_ += indent + NodeName(id) + " [";
    // A long id is drawn by its start; the whole of it is said once, in the node's tooltip.
    std::string label = DotEscape(StartOf(id, id.size() <= kLongestDrawnId ? id.size() : kDrawnStart));
    if (id.size() > kLongestDrawnId) {
      label += "… (" + std::to_string(id.size()) + " bytes)";
      out_ += "tooltip=" + DotQuote(id) + ", ";
    }
    const models::Peripheral* entry = index_.Registered(std::string(id));
    if (entry == nullptr) {
      out_ += "shape=box, style=dashed, color=red, fontcolor=red, label=\"" + label +
              "\\n(not in registry)\"];\n";
      return;
    }
    const int type = entry->type();
    const NodeStyle style = StyleOf(type);
    if (type == models::PERIPHERAL_TYPE_CAMERA) {
      auto model = models_.find(std::string(id));
      if (model != models_.end()) label += "\\n" + DotEscape(ModelLabel(model->second));
    }
    out_ +=
        std::string("shape=") + style.shape + ", fillcolor=\"" + style.fill + "\", label=\"" + label + "\"";
    if (type == models::PERIPHERAL_TYPE_CAMERA) out_ += ", style=\"rounded,filled\"";
    out_ += "];\n";
  }

  const Config& config_;
  const ConfigIndex& index_;
  std::unordered_map<std::string, int> models_;  // camera id -> CameraModel
  std::vector<std::string_view> nodes_;
  std::unordered_set<std::string_view> seen_;
  std::vector<Edge> edges_;
  std::set<Edge> edge_set_;
  std::vector<Cluster> clusters_;
  std::unordered_set<std::string_view> clustered_;
  std::unordered_map<std::string_view, std::string> names_;  // id -> its DOT name
  int long_ids_ = 0;
  std::string out_;
};

}  // namespace

std::string GraphDot(const ConfigIndex& index) { return DotWriter(index).Write(); }

}  // namespace pcfg
