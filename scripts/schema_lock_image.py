#!/usr/bin/env python3
"""Turns the schema lock into an image that `buf breaking` can compare against.

tests/golden/schema-descriptors.binpb holds the three file descriptors exactly as the library
embeds them: without the files they import (google/protobuf/descriptor.proto and wrappers.proto)
and without json_name, which protoc leaves out of embedded descriptors. buf needs both: the
imports to resolve the files, and json_name because it compares them (WIRE_JSON). This writes a
FileDescriptorSet of the imports followed by the locked files, with every field's json_name filled
in as the protobuf runtime computes it. The lock itself is not changed.

Usage: schema_lock_image.py LOCK.binpb OUT.binpb
"""
import sys

from google.protobuf import descriptor_pb2, descriptor_pool, wrappers_pb2


def fill_json_names(messages, descriptors):
    for message in messages:
        described = descriptors[message.name]
        for field in message.field:
            if not field.HasField("json_name"):
                field.json_name = described.fields_by_number[field.number].json_name
        fill_json_names(message.nested_type, described.nested_types_by_name)


def main(lock_path, out_path):
    with open(lock_path, "rb") as lock:
        locked = descriptor_pb2.FileDescriptorSet.FromString(lock.read())
    files = []
    for imported in (descriptor_pb2, wrappers_pb2):
        proto = descriptor_pb2.FileDescriptorProto()
        imported.DESCRIPTOR.CopyToProto(proto)
        files.append(proto)
    files.extend(locked.file)

    pool = descriptor_pool.DescriptorPool()
    for proto in files:
        pool.Add(proto)
    image = descriptor_pb2.FileDescriptorSet()
    for proto in files:
        fill_json_names(proto.message_type, pool.FindFileByName(proto.name).message_types_by_name)
        image.file.add().CopyFrom(proto)
    with open(out_path, "wb") as out:
        out.write(image.SerializeToString())


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__.strip().splitlines()[-1])
    main(sys.argv[1], sys.argv[2])
