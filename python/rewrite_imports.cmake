# Places protoc's Python modules inside the package `peripheralconfig`.
#   cmake -DIN=<protoc --python_out folder> -DOUT=<package folder> -DMODULES=<a,b,...> -P rewrite_imports.cmake
#
# protoc writes, for a schema file imported as "includes/enums.proto", the statement
#     from includes import enums_pb2 as includes_dot_enums__pb2
# and records 'includes.enums_pb2' as the module of the classes it builds. Inside the package both
# become peripheralconfig.includes...; nothing else in the modules changes (the runtime's own
# modules, google.protobuf..., are imported as protoc wrote them). A module that still imports a
# top-level `includes` or `peripheral` afterwards stops the build: protoc changed its output.
string(REPLACE "," ";" MODULES "${MODULES}")
foreach(module ${MODULES})
  file(READ ${IN}/${module} text)
  string(REGEX REPLACE "(^|\n)from (includes|peripheral) import " "\\1from peripheralconfig.\\2 import "
         text "${text}")
  string(REGEX REPLACE "'((includes|peripheral)\\.[A-Za-z0-9_]+_pb2)'" "'peripheralconfig.\\1'"
         text "${text}")
  string(REGEX MATCH "(^|\n)(from|import) +(includes|peripheral)[ .\n]" leftover "${text}")
  if(leftover)
    message(FATAL_ERROR "${module}: an import of a top-level schema package remains: ${leftover}")
  endif()
  file(WRITE ${OUT}/${module} "${text}")
endforeach()
