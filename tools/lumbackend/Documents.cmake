# Writes lumbackend.1 out of lumbackend.1.in: options and paths as the headers list them, the tables of
# the database as tables.sql has them. Sets LUM_BACKEND_MAN_PAGE. No program is run.
function(lum_escape_troff text result)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

file(READ src/tables.sql tables)
lum_escape_troff("${tables}" TABLES)

# The entries of a table in a header, four texts each, as text with commands of troff.
function(lum_read_table file entry_as result)
  file(READ ${file} table)
  string(REGEX REPLACE "\"\n *\"" "" table "${table}")
  # Semicolons and brackets would be CMake's own.
  string(REPLACE ";" "<semicolon>" table "${table}")
  string(REPLACE "\\\"" "<quote>" table "${table}")
  set(pattern "{\"([^\"]*)\", \"([^\"]*)\",[ \n]*\"([^\"]*)\",[ \n]*\"([^\"]*)\"}")
  string(REGEX MATCHALL "${pattern}" entries "${table}")
  set(text "")
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE "${pattern}" "${entry_as}" entry "${entry}")
    lum_escape_troff("${entry}" entry)
    string(APPEND text "${entry}\n")
  endforeach()
  string(REPLACE "Takes: .\n.br\n" "" text "${text}")
  string(REPLACE "<bold>" "\\fB" text "${text}")
  string(REPLACE "<italic>" "\\fI" text "${text}")
  string(REPLACE "<roman>" "\\fR" text "${text}")
  string(REPLACE "<quote>" "\"" text "${text}")
  string(REPLACE "<semicolon>" ";" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

lum_read_table(src/OptionTexts.h ".TP\n<bold>\\1<roman> <italic>\\2<roman>\n\\4." OPTIONS)
lum_read_table(src/Paths.h ".TP\n<bold>\\1 \\2<roman>\nTakes: \\3.\n.br\nAnswer: \\4" PATHS)

set(LUM_BACKEND_MAN_PAGE ${CMAKE_CURRENT_BINARY_DIR}/lumbackend.1)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  src/OptionTexts.h src/Paths.h src/tables.sql)
configure_file(lumbackend.1.in ${LUM_BACKEND_MAN_PAGE} @ONLY)
