# Numbers through the real binary: coordinates read and written back are the same doubles, in
# their shortest round-trip text; malformed fields give their file:line messages.
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# Each line is already the shortest text of its doubles (17 digits, exponents both ways, a
# negative zero), so the OBJ's vertex lines must repeat the input's, in order.
set(shortest
    "0.1 0.2 0.30000000000000004"
    "123456.78901234567 -9876543.210987654 1e-07"
    "-0.000123 5e+15 1.7976931348623157e+100"
    "3.141592653589793 2.718281828459045 -0"
    "1000 -2000 4.9406564584124657e-60"
    "5e+06 1200000 1.2e+07")
string(REPLACE ";" "\n" text "${shortest}")
file(WRITE "${WORK}/exact.xyz" "${text}\n")
# Other spellings of numbers read as the same doubles.
file(WRITE "${WORK}/spelled.xyz" "+0.10,2e-1;3.0000000000000004e-1\n1e3 -2.0E3 0\n5 5 5\n")
set(spelled "0.1 0.2 0.30000000000000004" "1000 -2000 0" "5 5 5")
foreach(name exact spelled)
    run_rytri(EXIT 0 ARGS ${name}.xyz -o ${name}.obj)
    file(STRINGS "${WORK}/${name}.obj" written REGEX "^v ")
    list(TRANSFORM written REPLACE "^v " "")
    if(name STREQUAL "exact")
        set(expected "${shortest}")
    else()
        set(expected "${spelled}")
    endif()
    if(NOT written STREQUAL expected)
        message(FATAL_ERROR "${name}.xyz: vertices written as\n${written}\nexpected\n${expected}")
    endif()
endforeach()

# Many coordinates of nine decimals: read back as the same doubles, written as std::to_chars does.
execute_process(COMMAND ${EMULATOR} "${BIGSITE}" 20000 3 site.xyz unused.txt WORKING_DIRECTORY "${WORK}")
run_rytri(EXIT 0 ARGS site.xyz -o site.obj)
check(points site.obj site.xyz)
check(shortest site.obj)
# Decimals of every length and point position, signed or not, some with exponents, most in the
# quick reader's forms around its limits, the file ending at a page's end: each read as the
# correctly rounded double (the checker reads the input with the C++ streams).
execute_process(COMMAND ${EMULATOR} "${BIGSITE}" 20000 5 spelled.xyz unused.txt spelled
                WORKING_DIRECTORY "${WORK}")
run_rytri(EXIT 0 ARGS spelled.xyz -o spelled.obj)
check(points spelled.obj spelled.xyz)
check(shortest spelled.obj)

# A malformed field on line 3, and the message it must give.
string(REPEAT "2.5 -3.25 1.125\n" 6 tail)
set(x "expected 'x y \\[z\\]': ")
set(cases
    "1.5x|${x}'1.5x' is not a number"
    "0x10|${x}'0x10' is not a number"
    "+|${x}'\\+' is not a number"
    "1e400|${x}'1e400' is out of the range of a double"
    "-inf|${x}'-inf' is not a finite number"
    "2 3 4|4 fields where 'x y \\[z\\]' has at most 3"
    "x 3 4|4 fields where 'x y \\[z\\]' has at most 3")
foreach(entry IN LISTS cases)
    string(REPLACE "|" ";" parts "${entry}")
    list(GET parts 0 field)
    list(GET parts 1 message)
    # Lines after it, so that the quick reader of plain lines meets it too.
    file(WRITE "${WORK}/bad.xyz" "0 0 1\n1 0 2\n0 ${field}\n${tail}")
    run_rytri(EXIT 2 STDERR "bad\\.xyz:3: ${message}" ARGS bad.xyz)
endforeach()
file(WRITE "${WORK}/bad.csv" "P N E Z\na 0 0 1\nb 1 0 2\nc 0 1.5x 3\n")
run_rytri(EXIT 2 STDERR "bad\\.csv:4: expected columns PNEZ: '1\\.5x' is not a number" ARGS bad.csv)
