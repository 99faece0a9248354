// Feeds arbitrary bytes to the loader, the checks, the views and the printers (the first byte
// picks the input's form). Whatever loads must print in every form, and the checks and views
// must be functions of the configuration alone: its binary form, loaded back, is equal
// (MessageDifferencer), draws the same views and gets the same findings, but for the rule that
// reads the raw wire data. Every rule stays within its cap, and the rule on unknown fields speaks
// exactly when there are some.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "checks.h"
#include "fuzz_support.h"
#include "graph.h"
#include "serialize.h"
#include "show.h"

namespace {

// Show (text and JSON) and graph output of a configuration.
std::string Views(const pcfg::LoadedConfig& loaded) {
  std::ostringstream out;
  const pcfg::ConfigIndex index(loaded.config);
  const pcfg::ShowFacts facts = pcfg::GatherShowFacts("fuzz", index);
  pcfg::PrintShowText(out, facts);
  pcfg::PrintShowJson(out, facts);
  out << pcfg::GraphDot(index);
  return out.str();
}

using Finding = std::tuple<std::string, int, std::string, std::string>;  // rule, severity, path, message

// The findings of every rule but the one that reads the raw wire data, sorted; where they stand
// aside.
std::vector<Finding> Findings(const pcfg::LoadedConfig& loaded, const pcfg::CheckOptions& options) {
  std::vector<Finding> findings;
  std::map<std::string, size_t> per_rule;
  for (const pcfg::Diagnostic& d : pcfg::RunChecks(loaded, options)) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Bytes input(data, size);
  const uint8_t first = input.Byte();
  pcfg::LoadedConfig loaded;
  if (!fuzz::Load(fuzz::FormatFromByte(first), input.Rest(), &loaded)) return 0;

  pcfg::CheckOptions options;
  options.max_per_rule = 1 + first / 3 % 4;  // small caps, so that they are reached
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
