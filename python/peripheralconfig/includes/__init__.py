"""Generated modules of the schema files in includes/ (includes/enums.proto, includes/optionals.proto)."""
