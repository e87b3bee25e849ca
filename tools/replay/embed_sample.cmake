# Writes the sample session as a C++ raw string: cmake -DIN=... -DOUT=... -P
file(READ ${IN} content)
string(FIND "${content}" ")sample\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${IN} contains the raw string's closing delimiter")
endif()
file(WRITE ${OUT} "// Generated from sample_session.jsonl; edit that file instead.\n"
  "#include \"trace.hpp\"\n\n"
  "namespace replay {\n\n"
  "const char *SampleSession()\n{\n    return R\"sample(${content})sample\";\n}\n\n"
  "}  // namespace replay\n")
