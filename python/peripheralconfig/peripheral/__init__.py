"""The generated module of peripheral.config.proto (config_pb2)."""
