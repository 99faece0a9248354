// The rule functions of the two families, and the helpers they share for the common kinds of
// finding. Internal to the checks.
#pragma once

#include <string>
#include <unordered_map>

#include "enum_names.h"
#include "rule.h"

namespace pcfg {

namespace rules {

inline const FieldPath kRoot;

inline std::string Quote(std::string_view text) { return "\"" + std::string(text) + "\""; }

inline std::string PeripheralTypeName(int type) {
  return EnumName(models::PeripheralType_descriptor(), type);
}

// Reports the second and later entries of LIST whose key was seen before. KEY_OF gives an entry's
// key (a string_view or a number); SHOW says how a key reads in a message.
template <typename Entry, typename KeyOf, typename Show>
void ReportRepeatedKeys(const google::protobuf::RepeatedPtrField<Entry>& list, const FieldPath& owner,
                        const char* list_name, const char* key_field, KeyOf key_of, Show show,
                        const std::string& what, Findings& findings) {
  using Key = std::decay_t<decltype(key_of(list.Get(0)))>;
  std::unordered_map<Key, int> first;
  first.reserve(static_cast<size_t>(list.size()));
  for (int i = 0; i < list.size(); ++i) {
    auto inserted = first.emplace(key_of(list.Get(i)), i);
    if (!inserted.second)
      findings.Add(owner.Element(list_name, i).Field(key_field),
                   what + " " + show(inserted.first->first) + " repeats " + list_name + "[" +
                       std::to_string(inserted.first->second) + "]");
  }
}

// References and topology: ids that must name registry entries of the right kind, dependencies,
// membership and the entries that describe each peripheral.
void CheckDuplicateIds(const CheckContext& context, Findings& findings);
void CheckDanglingReferences(const CheckContext& context, Findings& findings);
void CheckReferenceKinds(const CheckContext& context, Findings& findings);
void CheckDependencyCycles(const CheckContext& context, Findings& findings);
void CheckMissingEntries(const CheckContext& context, Findings& findings);
void CheckMembership(const CheckContext& context, Findings& findings);
void CheckNoDriver(const CheckContext& context, Findings& findings);
void CheckTemplateReferences(const CheckContext& context, Findings& findings);
void CheckIndexRange(const CheckContext& context, Findings& findings);

// Field rules: values that must agree with their schema or with the field next to them, most on
// one shared walk over every set scalar.
void CheckOptionsPairing(const CheckContext& context, Findings& findings);
void CheckDuplicateOptions(const CheckContext& context, Findings& findings);
void CheckMissingOptions(const CheckContext& context, Findings& findings);
void CheckHexStrings(const CheckContext& context, Findings& findings);
void CheckUndeclaredEnums(const CheckContext& context, Findings& findings);
void CheckDuplicateSequences(const CheckContext& context, Findings& findings);
void CheckDuplicatePipelines(const CheckContext& context, Findings& findings);
void CheckUnknownFields(const CheckContext& context, Findings& findings);
void CheckDeviceWire(const CheckContext& context, Findings& findings);

}  // namespace rules
}  // namespace pcfg
