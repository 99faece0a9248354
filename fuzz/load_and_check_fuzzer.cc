// Feeds arbitrary bytes to the loader, the checks, the views and the printers (the first byte
// picks the input's form). Whatever loads must print in every form, and the checks and views
// must be functions of the configuration alone: its binary form, loaded back, is equal
// (MessageDifferencer), draws the same views and gets the same findings, but for the rule that
// reads the raw wire data. Every rule stays within its cap, and the rule on unknown fields speaks
// exactly when there are some. What pcfg prints holds up whatever the strings hold: each
// diagnostic is one line without control characters, the show table has as many lines as it has
// when every string is replaced by its hexadecimal spelling, and the JSON outputs parse. Text
// findings stand where the whole text's syntax tree puts them.
#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "checks.h"
#include "fuzz_support.h"
#include "graph.h"
#include "sarif.h"
#include "serialize.h"
#include "show_facts.h"

namespace {

namespace gp = google::protobuf;

std::string ShowText(const pcfg::Config& config) {
  std::ostringstream out;
  const pcfg::ConfigIndex index(config);
  pcfg::PrintShowText(out, pcfg::GatherShowFacts("fuzz", index));
  return out.str();
}

void MustParseAsJson(const std::string& text, const char* what) {
  if (!nlohmann::json::accept(text)) fuzz::Fail(std::string(what) + " is not JSON", text);
}

// Show (text and JSON) and graph output of a configuration.
std::string Views(const pcfg::LoadedConfig& loaded) {
  std::ostringstream out, json;
  const pcfg::ConfigIndex index(loaded.config);
  const pcfg::ShowFacts facts = pcfg::GatherShowFacts("fuzz", index);
  pcfg::PrintShowText(out, facts);
  pcfg::PrintShowJson(json, facts);
  MustParseAsJson(json.str(), "show --format json");
  out << json.str() << pcfg::GraphDot(index);
  return out.str();
}

// Replaces every string in MESSAGE by its hexadecimal spelling: printable, and one to one, so
// that equal ids stay equal, different ones different, and their order stays.
void SpellStringsInHex(gp::Message* message) {
  const gp::Reflection* r = message->GetReflection();
  std::vector<const gp::FieldDescriptor*> fields;
  r->ListFields(*message, &fields);
  auto hex = [](const std::string& text) {
    std::string out;
    for (unsigned char c : text) out += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    return out;
  };
  for (const gp::FieldDescriptor* field : fields) {
    const bool repeated = field->is_repeated();
    const int count = repeated ? r->FieldSize(*message, field) : 1;
    for (int i = 0; i < count; ++i) {
      if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_STRING) {
        if (repeated)
          r->SetRepeatedString(message, field, i, hex(r->GetRepeatedString(*message, field, i)));
        else
          r->SetString(message, field, hex(r->GetString(*message, field)));
      } else if (field->cpp_type() == gp::FieldDescriptor::CPPTYPE_MESSAGE) {
        SpellStringsInHex(repeated ? r->MutableRepeatedMessage(message, field, i)
                                   : r->MutableMessage(message, field));
      }
    }
  }
}

void CheckPrintedText(const pcfg::Config& config, const std::vector<pcfg::Diagnostic>& diagnostics) {
  for (const pcfg::Diagnostic& d : diagnostics) {
    const std::string line = pcfg::FormatDiagnostic(d);
    for (unsigned char c : line)
      if (c < 0x20 || c == 0x7f) fuzz::Fail("a diagnostic holds a control character", line);
  }
  std::ostringstream json, sarif;
  pcfg::PrintDiagnosticsJson(json, diagnostics);
  MustParseAsJson(json.str(), "check --format json");
  pcfg::PrintDiagnosticsSarif(sarif, diagnostics);
  MustParseAsJson(sarif.str(), "check --format sarif");

  const std::string shown = ShowText(config);
  for (unsigned char c : shown)
    if ((c < 0x20 && c != '\n') || c == 0x7f) fuzz::Fail("show prints a control character", shown);
  pcfg::Config spelled(config);
  SpellStringsInHex(&spelled);
  const std::string shown_spelled = ShowText(spelled);
  if (std::count(shown.begin(), shown.end(), '\n') !=
      std::count(shown_spelled.begin(), shown_spelled.end(), '\n'))
    fuzz::Fail("show prints a different number of lines for hexadecimal strings",
               shown + "against\n" + shown_spelled);
}

using Finding = std::tuple<std::string, int, std::string, std::string>;  // rule, severity, path, message

// The findings of every rule but the one that reads the raw wire data, sorted; where they stand
// aside. Their printed forms must hold up.
std::vector<Finding> Findings(const pcfg::LoadedConfig& loaded, const pcfg::CheckOptions& options) {
  std::vector<Finding> findings;
  std::map<std::string, size_t> per_rule;
  const std::vector<pcfg::Diagnostic> diagnostics = pcfg::RunChecks(loaded, options);
  CheckPrintedText(loaded.config, diagnostics);
  for (const pcfg::Diagnostic& d : diagnostics) {
    if (d.severity != pcfg::Severity::kNote && ++per_rule[d.rule] > options.max_per_rule)
      fuzz::Fail("rule " + d.rule + " goes over its cap of findings");
    if (d.rule != "device-wire")
      findings.emplace_back(d.rule, static_cast<int>(d.severity), d.path, d.message);
  }
  std::sort(findings.begin(), findings.end());  // they come in the order of where they stand
  return findings;
}

std::string Listing(const std::vector<Finding>& findings) {
  std::string text;
  for (const auto& [rule, severity, path, message] : findings)
    text += rule + " " + std::to_string(severity) + " " + path + ": " + message + "\n";
  return text;
}

// Text: where each finding stands, found before the whole text's syntax tree is built (in the
// tree of the root entry that holds it), is where the whole tree puts it. LOADED must not have
// been checked yet: what its first check places is what is compared.
void LocatedAsByTheWholeTree(const pcfg::LoadedConfig& loaded, const pcfg::CheckOptions& options) {
  pcfg::LoadedConfig whole;
  if (!fuzz::Load(pcfg::Format::kText, loaded.raw, &whole)) fuzz::Fail("the text does not load again");
  whole.Syntax();
  const auto places = [&options](const pcfg::LoadedConfig& from) {
    std::string listed;
    for (const pcfg::Diagnostic& d : pcfg::RunChecks(from, options))
      listed += d.rule + " " + d.path + " " + std::to_string(d.line) + ":" + std::to_string(d.column) + "-" +
                std::to_string(d.end_line) + ":" + std::to_string(d.end_column) + " @" +
                std::to_string(d.text_offset) + "+" + std::to_string(d.text_length) + "\n";
    return listed;
  };
  const std::string before = places(loaded), after = places(whole);
  if (before != after)
    fuzz::Fail("findings stand elsewhere than the whole tree puts them", before + "against\n" + after);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Bytes input(data, size);
  const uint8_t first = input.Byte();
  pcfg::LoadedConfig loaded;
  if (!fuzz::Load(fuzz::FormatFromByte(first), input.Rest(), &loaded)) return 0;

  pcfg::CheckOptions options;
  options.max_per_rule = 1 + first / 3 % 4;  // small caps, so that they are reached
  if (loaded.format == pcfg::Format::kText) LocatedAsByTheWholeTree(loaded, options);
  const std::vector<Finding> findings = Findings(loaded, options);
  if (pcfg::FindUnknownFields(loaded).empty() == fuzz::HasUnknownFields(loaded.config))
    fuzz::Fail("the unknown-field rule disagrees with the configuration");
  const std::string views = Views(loaded);
  for (pcfg::Format format : {pcfg::Format::kText, pcfg::Format::kJson}) {
    std::string printed, error;
    // JSON cannot carry unknown fields; the printer may refuse them, but nothing else.
    if (!pcfg::SerializeConfig(loaded.config, format, &printed, &error) &&
        !(format == pcfg::Format::kJson && fuzz::HasUnknownFields(loaded.config)))
      fuzz::Fail(std::string("cannot print the ") + pcfg::FormatName(format) + " form", error);
  }

  pcfg::LoadedConfig again;
  if (!fuzz::Load(pcfg::Format::kBinary, fuzz::Print(loaded.config, pcfg::Format::kBinary), &again))
    fuzz::Fail("the binary form does not load");
  std::string differences;
  if (!fuzz::Equal(loaded.config, again.config, &differences))
    fuzz::Fail("the binary form loads different", differences);
  const std::vector<Finding> again_findings = Findings(again, options);
  if (again_findings != findings)
    fuzz::Fail("the binary form gets other findings",
               Listing(findings) + "against\n" + Listing(again_findings));
  if (Views(again) != views) fuzz::Fail("the binary form shows or draws differently");
  return 0;
}
