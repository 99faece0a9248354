// pcfg show and pcfg graph: the bring-up order, the facts show prints as text and JSON, and the
// DOT that graph writes, read back through Graphviz itself.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bringup.h"
#include "json_output.h"
#include "pcfg_test_support.h"

namespace {

using nlohmann::json;
using pcfg_test::Pcfg;
using pcfg_test::ReadFile;
using pcfg_test::WriteFile;

using pcfg_test::Scratch;
using pcfg_test::Written;

bool DotOnPath() { return std::system("command -v dot >/dev/null 2>&1") == 0; }

std::vector<std::string> Ids(const pcfg::Config& config, const std::vector<int>& indices) {
  std::vector<std::string> ids;
  for (int index : indices) ids.push_back(config.peripherals(index).id());
  return ids;
}

// Registry entries "id" or "id>dep1,dep2" (each id depends on the listed ones), in order.
std::string Registry(const std::vector<std::string>& entries) {
  std::string text;
  for (const std::string& entry : entries) {
    const size_t arrow = entry.find('>');
    text += "peripherals { id: \"" + entry.substr(0, arrow) + "\" type: PERIPHERAL_TYPE_GENERIC";
    for (size_t start = arrow; start != std::string::npos;) {
      const size_t end = entry.find(',', start + 1);
      text += " dependencies { peripheral_id: \"" + entry.substr(start + 1, end - start - 1) + "\" }";
      start = end;
    }
    text += " }\n";
  }
  return text;
}

TEST(BringUp, DependenciesFirstThenRegistryOrder) {
  struct Row {
    const char* what;
    std::vector<std::string> registry;
    std::vector<std::string> order;
    std::vector<std::string> left_out;
  };
  const Row rows[] = {
      {"independent entries keep registry order", {"c", "a", "b"}, {"c", "a", "b"}, {}},
      {"a chain listed backwards", {"a>b", "b>c", "c"}, {"c", "b", "a"}, {}},
      // Once y is up, x (entry 0) is ready with z (entry 2): the earlier entry goes first.
      {"a newly ready entry earlier in the registry wins",
       {"x>y", "y", "z", "w>z"},
       {"y", "x", "z", "w"},
       {}},
      {"diamond",
       {"top>left,right", "left>base", "right>base", "base"},
       {"base", "left", "right", "top"},
       {}},
      {"repeated dependency", {"a>b,b", "b"}, {"b", "a"}, {}},
      {"dangling dependency is ignored", {"a>ghost", "b"}, {"a", "b"}, {}},
      {"cycle and what depends on it are left out, the rest ordered",
       {"a>b", "b>a", "c>a", "d", "e>d"},
       {"d", "e"},
       {"a", "b", "c"}},
      {"self-dependency", {"solo>solo", "other"}, {"other"}, {"solo"}},
  };
  for (const Row& row : rows) {
    const pcfg::LoadedConfig loaded = pcfg_test::ParseText(Registry(row.registry));
    const pcfg::ConfigIndex index(loaded.config);
    const pcfg::BringUpOrder order = pcfg::TopologicalBringUp(pcfg::DependencyGraph(index));
    EXPECT_EQ(Ids(loaded.config, order.order), row.order) << row.what;
    EXPECT_EQ(Ids(loaded.config, order.left_out), row.left_out) << row.what;
    EXPECT_EQ(order.complete(), row.left_out.empty()) << row.what;
  }
}

// Covers each driver, an applicable options entry, a missing one, an alias model name, an
// undeclared model number and a camera that is not registered.
const char kSmall[] = R"(device_info { device_name: HARDWARE_TREVIL3 soc_name: "sm8550" }
peripherals { id: "fpga" type: PERIPHERAL_TYPE_FPGA system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR }
peripherals { id: "stereo" type: PERIPHERAL_TYPE_LOGICAL_CAMERA dependencies { peripheral_id: "set" } }
peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET dependencies { peripheral_id: "cam_a" } }
peripherals {
  id: "cam_a" type: PERIPHERAL_TYPE_CAMERA system_type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX
  dependencies { peripheral_id: "fpga" }
}
peripherals {
  id: "cam_b" type: PERIPHERAL_TYPE_CAMERA system_type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX_CADMOR
  dependencies { peripheral_id: "fpga" }
}
peripherals { id: "cam_d" type: PERIPHERAL_TYPE_CAMERA system_type: PERIPHERAL_SYSTEM_TYPE_CADMOR }
physical_cameras { peripheral_id: "cam_a" model: CAMERA_MODEL_OG0VA1B camx {} cameraset_peripheral_ids: "set" }
physical_cameras { peripheral_id: "cam_b" model: CAMERA_MODEL_VELMIR2 camx {} cadmor {} }
physical_cameras { peripheral_id: "cam_c" model: 57 }
physical_cameras { peripheral_id: "cam_d" model: CAMERA_MODEL_OV9281 cadmor {} }
camera_sets {
  peripheral_id: "set" camera_peripheral_ids: ["cam_a", "cam_b"] sync_period_us: 33333
  cadmor { camera_set_id: 2 }
}
logical_cameras { peripheral_id: "stereo" camera_peripheral_ids: ["cam_a", "cam_b"] camx { primary_camera_index: 1 } }
camera_stream_configs {
  peripheral_id: "stream" cadmor_frame_type: CADMOR_FRAME_TYPE_HAND camera_type: CAMERA_TYPE_FT
  camera_peripheral_ids: ["cam_a"] is_default: true
}
system_options { type: PERIPHERAL_SYSTEM_TYPE_CADMOR }
system_options { type: PERIPHERAL_SYSTEM_TYPE_CAMERA_QC_CAMX options_qc_camx {} }
general_configs {
  hal_stream_configs {
    system_type: CAMERA_SYSTEM_TYPE_COLOR
    pipeline_configs { pipeline_type: PIPELINE_DEFAULT streams: [STREAM_RAW10_NATIVE, STREAM_YUV420_FULL_POSTPROCESS] }
  }
}
)";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  return lines;
}

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The table of a text section as header -> cell per row, read at the header's column offsets,
// so a cell comes out whole only when the columns are aligned.
std::vector<std::map<std::string, std::string>> Section(const std::string& text, const std::string& title) {
  const std::vector<std::string> lines = Lines(text);
  size_t at = 0;
  while (at < lines.size() && lines[at].rfind(title + ":", 0) != 0) ++at;
  std::vector<std::map<std::string, std::string>> rows;
  if (at + 1 >= lines.size()) return rows;
  const std::string& header = lines[at + 1];
  std::vector<std::pair<size_t, std::string>> columns;  // start, name
  for (size_t i = 2; i < header.size();) {
    const size_t end = header.find("  ", i);
    columns.emplace_back(i, header.substr(i, end == std::string::npos ? end : end - i));
    if (end == std::string::npos) break;
    i = header.find_first_not_of(' ', end);
  }
  for (size_t k = at + 2; k < lines.size() && !lines[k].empty(); ++k) {
    std::map<std::string, std::string> row;
    for (size_t c = 0; c < columns.size(); ++c) {
      const size_t start = columns[c].first;
      const size_t end = c + 1 < columns.size() ? columns[c + 1].first : std::string::npos;
      row[columns[c].second] = start < lines[k].size() ? Trim(lines[k].substr(start, end - start)) : "";
    }
    rows.push_back(row);
  }
  return rows;
}

// Each fact as the text table shows it (section, row, column) and as the JSON carries it.
TEST(Show, TextAndJsonCarryTheSameFacts) {
  const auto text = Pcfg({"show", Written("small.txtpb", kSmall)});
  ASSERT_EQ(text.status, 0) << text.err;
  const auto json_run = Pcfg({"show", "-", "--format", "json"}, kSmall);
  ASSERT_EQ(json_run.status, 0) << json_run.err;
  const json facts = json::parse(json_run.out);
  EXPECT_EQ(text.out.find('\t'), std::string::npos);
  EXPECT_NE(text.out.find("Device         HARDWARE_TREVIL3 (TREVIL3)\nSoC            sm8550\n"),
            std::string::npos)
      << text.out;
  EXPECT_EQ(facts["device"], json({{"name", "HARDWARE_TREVIL3"}, {"alias", "TREVIL3"}, {"soc", "sm8550"}}));

  struct Row {
    const char* section;
    size_t row;
    const char *column, *text;
    const char *pointer, *json;
  };
  const char* kCameras = "Physical cameras";
  const Row rows[] = {
      {kCameras, 0, "DRIVER", "CamX", "/physical_cameras/0/driver", R"("CamX")"},
      {kCameras, 0, "SYSTEM OPTIONS", "system_options[1] options_qc_camx",
       "/physical_cameras/0/system_options", R"({"index": 1, "member": "options_qc_camx"})"},
      // an alias model name is shown by its first name
      {kCameras, 1, "MODEL", "CAMERA_MODEL_OG0VE1B", "/physical_cameras/1/model",
       R"("CAMERA_MODEL_OG0VE1B")"},
      {kCameras, 1, "DRIVER", "both", "/physical_cameras/1/driver", R"("both")"},
      {kCameras, 1, "SYSTEM OPTIONS", "none", "/physical_cameras/1/system_options", "null"},
      // an undeclared model number, and a camera that is not registered
      {kCameras, 2, "MODEL", "57", "/physical_cameras/2/model", R"("57")"},
      {kCameras, 2, "DRIVER", "none", "/physical_cameras/2/driver", R"("none")"},
      {kCameras, 2, "SYSTEM TYPE", "- (not in registry)", "/physical_cameras/2/system_type", "null"},
      {kCameras, 2, "SYSTEM OPTIONS", "-", "/physical_cameras/2/system_options", "null"},
      {kCameras, 3, "DRIVER", "Cadmor", "/physical_cameras/3/driver", R"("Cadmor")"},
      {kCameras, 3, "SYSTEM OPTIONS", "system_options[0] (no member set)",
       "/physical_cameras/3/system_options", R"({"index": 0, "member": null})"},
      {"Camera sets", 0, "MEMBERS", "cam_a, cam_b", "/camera_sets/0/members", R"(["cam_a", "cam_b"])"},
      {"Camera sets", 0, "SYNC PERIOD (us)", "33333", "/camera_sets/0/sync_period_us", "33333"},
      {"Camera sets", 0, "CADMOR SET", "2", "/camera_sets/0/cadmor_camera_set_id", "2"},
      {"Logical cameras", 0, "PRIMARY", "cam_b", "/logical_cameras/0/primary", R"("cam_b")"},
      {"Stream configurations", 0, "FRAME TYPE", "CADMOR_FRAME_TYPE_HAND", "/stream_configs/0/frame_type",
       R"("CADMOR_FRAME_TYPE_HAND")"},
      {"HAL pipelines", 0, "STREAMS", "STREAM_RAW10_NATIVE, STREAM_YUV420_FULL_POSTPROCESS",
       "/hal_pipelines/0/streams", R"(["STREAM_RAW10_NATIVE", "STREAM_YUV420_FULL_POSTPROCESS"])"},
      {"Bring-up order (dependencies first)", 1, "TYPE", "PERIPHERAL_TYPE_CAMERA", "/bring_up/order/1",
       R"({"id": "cam_a", "type": "PERIPHERAL_TYPE_CAMERA"})"},
  };
  for (const Row& row : rows) {
    const auto section = Section(text.out, row.section);
    ASSERT_LT(row.row, section.size()) << row.section << "\n" << text.out;
    EXPECT_EQ(section[row.row].at(row.column), row.text)
        << row.section << " " << row.row << " " << row.column;
    EXPECT_EQ(facts.at(json::json_pointer(row.pointer)), json::parse(row.json)) << row.pointer;
  }
  std::vector<std::string> ids;
  for (const auto& row : Section(text.out, kCameras)) ids.push_back(row.at("ID"));
  EXPECT_EQ(ids, (std::vector<std::string>{"cam_a", "cam_b", "cam_c", "cam_d"}));
  EXPECT_EQ(facts["physical_cameras"].size(), 4u);

  std::map<std::string, std::string> counts;
  for (const auto& row : Section(text.out, "Peripherals")) counts[row.at("TYPE")] = row.at("COUNT");
  EXPECT_EQ(counts, (std::map<std::string, std::string>{{"PERIPHERAL_TYPE_CAMERA", "3"},
                                                        {"PERIPHERAL_TYPE_CAMERASET", "1"},
                                                        {"PERIPHERAL_TYPE_LOGICAL_CAMERA", "1"},
                                                        {"PERIPHERAL_TYPE_FPGA", "1"}}));
  EXPECT_EQ(facts["peripheral_count"], 6);
  EXPECT_EQ(facts["peripheral_types"]["PERIPHERAL_TYPE_CAMERA"], 3);
  std::vector<std::string> order;
  for (const auto& row : Section(text.out, "Bring-up order (dependencies first)"))
    order.push_back(row.at("ID"));
  EXPECT_EQ(order, (std::vector<std::string>{"fpga", "cam_a", "set", "stereo", "cam_b", "cam_d"}));
  EXPECT_EQ(facts["bring_up"]["complete"], true);
  EXPECT_EQ(text.out.find("CYCLE"), std::string::npos);
}

TEST(JsonOutput, ArraysWrittenElementByElementMatchWholeOnes) {
  for (const char* text :
       {R"([])", R"([1])", R"([{"a": [1, {"b": []}]}, "x\ny", {}])", R"([[[]], [[1, 2]]])"}) {
    const pcfg::Json array = pcfg::Json::parse(text);
    for (int depth : {0, 2}) {
      std::ostringstream whole, streamed;
      pcfg::WriteJsonAt(whole, array, depth);
      pcfg::JsonArrayWriter writer(streamed, depth);
      for (const pcfg::Json& element : array) writer.Add(element);
      writer.Close();
      EXPECT_EQ(streamed.str(), whole.str()) << text << " at depth " << depth;
    }
  }
}

TEST(ShowGraph, EdgesOfTheTopology) {
  // A primary index equal to the member count names no member; a template's memberships are
  // a pattern for the cameras made from it, not edges; a cell of exactly the widest width is whole.
  const std::string widest(100, 'w');
  const std::string text = R"(peripherals { id: "set" type: PERIPHERAL_TYPE_CAMERASET }
physical_cameras { peripheral_id: "base" is_template: true cameraset_peripheral_ids: "set" }
camera_sets { peripheral_id: "set" }
logical_cameras { peripheral_id: "log" camera_peripheral_ids: ["a", "b"] camx { primary_camera_index: 2 } }
peripherals { id: ")" + widest +
                           R"(" type: PERIPHERAL_TYPE_FPGA }
peripherals { id: ")" + widest +
                           R"(x" type: PERIPHERAL_TYPE_FPGA }
)";
  const std::string file = Written("edges.txtpb", text);
  const auto facts = json::parse(Pcfg({"show", "--format", "json", file}).out);
  EXPECT_EQ(facts["logical_cameras"][0]["primary"], "#2");
  const std::string shown = Pcfg({"show", file}).out;
  EXPECT_NE(shown.find("  " + widest + "  "), std::string::npos) << "a cell of 100 columns is cut";
  EXPECT_NE(shown.find(widest.substr(0, 72) + "… (29 more bytes)"), std::string::npos) << shown;
  const std::string dot = Pcfg({"graph", file}).out;
  EXPECT_EQ(dot.find("\"base\""), std::string::npos) << dot;
}

TEST(Show, CycleIsReportedAndTheRestOrdered) {
  const std::string text = Registry({"a>b", "b>a", "c>a", "d", "e>d"});
  const auto plain = Pcfg({"show", "-"}, text);
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_NE(plain.out.find("DEPENDENCY CYCLE: 3 peripheral(s) on or behind a cycle are left out of the "
                           "bring-up order: a, b, c"),
            std::string::npos)
      << plain.out;

  const json facts = json::parse(Pcfg({"show", "-", "--format", "json"}, text).out);
  EXPECT_EQ(facts["bring_up"]["complete"], false);
  EXPECT_EQ(facts["bring_up"]["left_out"], json({"a", "b", "c"}));
}

// Ids that DOT would misread unquoted or unescaped, and ids that differ only in a control
// character, or in a control character against its escaped spelling.
const char kAwkward[] = R"(peripherals { id: "fpga \"main\"" type: PERIPHERAL_TYPE_FPGA }
peripherals { id: "p\001" } peripherals { id: "p\002" } peripherals { id: "p\\001" } peripherals { id: "p\t" }
peripherals { id: "node" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: "fpga \"main\"" } }
peripherals { id: "back\\slash" type: PERIPHERAL_TYPE_CAMERA dependencies { peripheral_id: "node" } }
peripherals { id: "cam -> 2" type: PERIPHERAL_TYPE_CAMERA }
peripherals { id: "set {1}" type: PERIPHERAL_TYPE_CAMERASET }
peripherals { id: "logical" type: PERIPHERAL_TYPE_LOGICAL_CAMERA }
physical_cameras { peripheral_id: "back\\slash" model: CAMERA_MODEL_PELLIDOR cameraset_peripheral_ids: "set {1}" }
camera_sets { peripheral_id: "set {1}" camera_peripheral_ids: ["back\\slash", "cam -> 2"] }
logical_cameras { peripheral_id: "logical" camera_peripheral_ids: ["cam -> 2", "ghost"] }
)";

TEST(Graph, DotReadsBackAsTheTopology) {
  const auto run = Pcfg({"graph", Written("awkward.txtpb", kAwkward)});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("digraph", 0), 0u) << run.out;
  EXPECT_EQ(run.out.find_first_of("\x01\x02\t"), std::string::npos) << "a raw control character in the DOT";
  if (!DotOnPath()) GTEST_SKIP() << "Graphviz's dot is not on PATH";

  // Graphviz's own reading of the DOT: nodes, clusters and edges with their styles.
  const std::string dot_file = Written("awkward.dot", run.out);
  const std::string json_file = Scratch("awkward.json");
  ASSERT_EQ(std::system(
                ("dot -Tjson0 " + pcfg_test::Quote(dot_file) + " -o " + pcfg_test::Quote(json_file)).c_str()),
            0);
  const json graph = json::parse(ReadFile(json_file));
  std::map<int, std::string> names;
  std::map<std::string, std::string> labels, shapes;
  std::vector<std::string> clusters;
  for (const json& object : graph["objects"]) {
    if (object.contains("nodes")) {
      clusters.push_back(object["label"]);
      continue;
    }
    names[object["_gvid"]] = object["name"];
    labels[object["name"]] = object["label"];
    shapes[object["name"]] = object["shape"];
  }
  EXPECT_EQ(clusters, std::vector<std::string>{"set {1}"});
  EXPECT_EQ(labels.size(), 11u);  // ten registered, and "ghost" drawn as missing
  // Graphviz keeps a backslash of a node name as written (only \" is an escape there), so the
  // name is the id with its backslashes doubled; the label, which is what is drawn, reads \\ as one.
  EXPECT_EQ(labels.at("back\\\\slash"), "back\\\\slash\\nIMX471");
  EXPECT_NE(labels.at("ghost").find("not in registry"), std::string::npos);
  const std::string svg_file = Scratch("awkward.svg");
  ASSERT_EQ(
      std::system(("dot -Tsvg " + pcfg_test::Quote(dot_file) + " -o " + pcfg_test::Quote(svg_file)).c_str()),
      0);
  const std::string svg = ReadFile(svg_file);
  for (const char* drawn : {">back\\slash<", ">IMX471<", ">fpga &quot;main&quot;<", ">cam &#45;&gt; 2<"})
    EXPECT_NE(svg.find(drawn), std::string::npos) << drawn;
  std::set<std::string> distinct_shapes;
  for (const char* id : {"fpga \"main\"", "node", "cam -> 2", "set {1}", "logical"})
    distinct_shapes.insert(shapes[id]);
  EXPECT_EQ(distinct_shapes.size(), 5u) << "each peripheral type is drawn differently";

  std::set<std::string> edges;
  for (const json& edge : graph["edges"])
    edges.insert(names[edge["tail"]] + " -> " + names[edge["head"]] + " " + edge.value("style", "solid"));
  EXPECT_EQ(edges, (std::set<std::string>{
                       "fpga \"main\" -> node solid",
                       "node -> back\\\\slash solid",
                       "back\\\\slash -> set {1} dashed",
                       "cam -> 2 -> set {1} dashed",
                       "cam -> 2 -> logical dashed",
                       "ghost -> logical dashed",
                   }));
}

// A long id with many edges is drawn by its start and named by a number: the drawing and the
// table stay near the input's size, the whole id is in the drawing once, and two long ids with
// one start stay two nodes.
TEST(ShowGraph, LongIdsAreWrittenOnce) {
  const std::string start(100, 'L');
  const std::string long_a = start + std::string(10000, 'a'), long_b = start + std::string(10000, 'b');
  std::string text = "peripherals { id: \"" + long_a + "\" type: PERIPHERAL_TYPE_FPGA }\n";
  text += "peripherals { id: \"" + long_b + "\" type: PERIPHERAL_TYPE_FPGA }\n";
  for (int i = 0; i < 300; ++i)
    text += "peripherals { id: \"p" + std::to_string(i) +
            "\" type: PERIPHERAL_TYPE_IMU dependencies { peripheral_id: \"" + (i % 2 ? long_a : long_b) +
            "\" } }\n";
  const std::string input = Written("long-ids.txtpb", text);
  const auto count = [](const std::string& haystack, const std::string& needle) {
    size_t n = 0;
    for (size_t at = haystack.find(needle); at != std::string::npos; at = haystack.find(needle, at + 1)) ++n;
    return n;
  };
  const auto graph = Pcfg({"graph", input});
  ASSERT_EQ(graph.status, 0) << graph.err;
  EXPECT_LT(graph.out.size(), 2 * (long_a.size() + long_b.size()) + 100 * 1000) << "an id per edge";
  EXPECT_EQ(count(graph.out, long_a), 1u);
  EXPECT_EQ(count(graph.out, long_b), 1u);
  EXPECT_EQ(count(graph.out, "\\…#1\" -> "), 150u);
  EXPECT_EQ(count(graph.out, "\\…#2\" -> "), 150u);
  const auto show = Pcfg({"show", input});
  ASSERT_EQ(show.status, 0) << show.err;
  EXPECT_EQ(count(show.out, long_a), 0u);
  EXPECT_LT(show.out.size(), text.size()) << "a long id per row, or rows padded to it";
  EXPECT_NE(show.out.find("more bytes)"), std::string::npos);
}

TEST(Graph, RendersImagesWithDot) {
  if (!DotOnPath()) GTEST_SKIP() << "Graphviz's dot is not on PATH";
  const std::string input = Written("small-graph.txtpb", kSmall);
  struct Row {
    const char* file;
    std::string magic;
  };
  for (const Row& row : {Row{"topology.svg", "<svg"}, Row{"topology.png", "\x89PNG"}}) {
    const std::string out = Scratch(row.file);
    const auto run = Pcfg({"graph", input, "-o", out});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string image = ReadFile(out);
    EXPECT_NE(image.find(row.magic), std::string::npos) << row.file;
    if (row.magic == "<svg") {
      EXPECT_NE(image.find("OG0VA1B"), std::string::npos);
    }
  }
}

// A dot that is missing, cannot run, fails or is killed: graph says so and writes nothing.
TEST(Graph, DotThatCannotRenderIsReportedAndNothingWritten) {
  const std::string input = Written("no-dot.txtpb", kSmall);
  // A graph larger than a pipe holds, for a dot that reads none of it.
  std::string many;
  for (int i = 0; i < 3000; ++i)
    many += "peripherals { id: \"p" + std::to_string(i) + "\" type: PERIPHERAL_TYPE_CAMERA }\n";
  const std::string large = Written("no-dot-large.txtpb", many);
  struct Row {
    const char* dot;  // the script standing in for dot; nullptr: none on PATH
    mode_t mode;
    const char* says;
    bool large = false;
  };
  const Row rows[] = {
      {nullptr, 0, "Graphviz's dot is not on PATH; install the Debian package graphviz"},
      {"#!/bin/sh\nexit 0\n", 0644, "cannot run dot: Permission denied"},
      {"#!/bin/sh\nexit 3\n", 0755, "dot failed with exit status 3"},
      {"#!/bin/sh\nkill -9 $$\n", 0755, "dot was killed"},
      {"#!/bin/sh\nexec 0<&-\n", 0755, "dot ended before reading all of the graph", true},
  };
  const std::string saved = std::getenv("PATH") ? std::getenv("PATH") : "";
  int n = 0;
  for (const Row& row : rows) {
    const std::string dir = Scratch("fake-dot-" + std::to_string(n++));
    ::mkdir(dir.c_str(), 0755);
    if (row.dot != nullptr) {
      WriteFile(dir + "/dot", row.dot);
      ::chmod((dir + "/dot").c_str(), row.mode);
    }
    ::setenv("PATH", dir.c_str(), 1);
    const auto run = Pcfg({"graph", row.large ? large : input, "-o", dir + "/out.svg"});
    ::setenv("PATH", saved.c_str(), 1);
    EXPECT_EQ(run.status, 2) << row.says;
    EXPECT_NE(run.err.find(row.says), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("(nothing written)"), std::string::npos) << run.err;
    struct stat info;
    EXPECT_NE(::stat((dir + "/out.svg").c_str(), &info), 0) << row.says;
  }
  // DOT itself needs no Graphviz.
  ::setenv("PATH", Scratch("fake-dot-0").c_str(), 1);
  EXPECT_EQ(Pcfg({"graph", input, "-o", Scratch("no-dot.dot")}).status, 0);
  ::setenv("PATH", saved.c_str(), 1);
}

}  // namespace
