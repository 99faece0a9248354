#!/usr/bin/env python3
"""Writes the libFuzzer dictionaries of the fuzz targets from the schema: every field name and
enumeration value name, with the tokens of the text format (text.dict, also used by fmt and
load-and-check through links) and of the JSON mapping (json.dict).

    protoc -Iperipheralconfig/proto --include_imports --descriptor_set_out=/tmp/schema.pb \
        peripheralconfig/proto/peripheral.config.proto
    fuzz/write_dictionaries.py /tmp/schema.pb fuzz/
"""
import os
import sys

from google.protobuf import descriptor_pb2

PACKAGE = "Talvo.Peripherals.Config.Models"


def names(descriptor_set):
    fields, json_fields, values = set(), set(), set()

    def message(m):
        for f in m.field:
            fields.add(f.name)
            json_fields.add(f.json_name)
        for nested in m.nested_type:
            message(nested)
        for e in m.enum_type:
            values.update(v.name for v in e.value)

    for f in descriptor_set.file:
        if f.package != PACKAGE:
            continue
        for m in f.message_type:
            message(m)
        for e in f.enum_type:
            values.update(v.name for v in e.value)
    return sorted(fields), sorted(json_fields), sorted(values)


def entry(text):
    escaped = "".join(c if 32 <= ord(c) < 127 and c not in '"\\' else "\\x%02x" % ord(c) for c in text)
    return '"%s"\n' % escaped


def main():
    descriptor_set = descriptor_pb2.FileDescriptorSet()
    with open(sys.argv[1], "rb") as f:
        descriptor_set.ParseFromString(f.read())
    out = sys.argv[2]
    fields, json_fields, values = names(descriptor_set)
    text_tokens = ["{", "}", "<", ">", "[", "]", ":", ",", ";", '"', "'", "#", "\n", "\\", "\\x", "\\u",
                   "\\303\\251", "nan", "-inf", "inf", "-0.0", "1e400", "0x", "-2147483648", "4294967296",
                   "true", "false", "# proto-file: ", "# proto-message: ", "[ext]"]
    json_tokens = ["{", "}", "[", "]", ":", ",", '"', "\\u", "\\ud800", "null", "true", "false", '"NaN"',
                   '"Infinity"', '"-Infinity"', "-0", "1e400", "4294967296", "-2147483649", '""',
                   # What protobuf's C++ parser tolerates and strict JSON does not.
                   ",]", ",}", "'", "''", "/*", "*/", "//", "\t", "\x01", "NaN", "Infinity", "01", "1.",
                   ".5", "+1", "\\x", "\ufeff"]
    with open(os.path.join(out, "text.dict"), "w") as f:
        f.write("# Written by fuzz/write_dictionaries.py from the schema.\n")
        f.writelines(entry(t) for t in text_tokens)
        f.writelines(entry(name + ":") for name in fields)
        f.writelines(entry(name + " {") for name in fields)
        f.writelines(entry(value) for value in values)
    with open(os.path.join(out, "json.dict"), "w") as f:
        f.write("# Written by fuzz/write_dictionaries.py from the schema.\n")
        f.writelines(entry(t) for t in json_tokens)
        f.writelines(entry('"%s":' % name) for name in sorted(set(fields) | set(json_fields)))
        f.writelines(entry("%s:" % name) for name in sorted(set(fields) | set(json_fields)))  # bare keys
        f.writelines(entry("'%s':" % name) for name in sorted(json_fields))
        f.writelines(entry('"%s"' % value) for value in values)


if __name__ == "__main__":
    main()
