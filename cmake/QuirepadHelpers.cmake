# quirepad_add_library(<name> SOURCES ... LIBS ...)
# Declares one subsystem library: quirepad_<name>, includable as
# #include "<name>/Header.h" from the source root.
function(quirepad_add_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_library(quirepad_${name} STATIC ${ARG_SOURCES})
    target_include_directories(quirepad_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
    target_link_libraries(quirepad_${name} PUBLIC ${ARG_LIBS})
    add_library(Quirepad::${name} ALIAS quirepad_${name})
endfunction()

# quirepad_add_test_suite(<subsystem> SOURCES ... CLASSES ... LIBS ...)
# One test executable per subsystem (tst_<subsystem>); every QtTest class
# listed in CLASSES becomes its own CTest entry "<subsystem>.<Class>".
function(quirepad_add_test_suite subsystem)
    cmake_parse_arguments(ARG "" "" "SOURCES;CLASSES;LIBS;ENVIRONMENT" ${ARGN})
    set(target tst_${subsystem})
    add_executable(${target} ${ARG_SOURCES}
        ${PROJECT_SOURCE_DIR}/tests/common/TestMain.cpp
        ${PROJECT_SOURCE_DIR}/tests/common/LogCapture.cpp)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/common)
    target_link_libraries(${target} PRIVATE Qt6::Test ${ARG_LIBS})
    foreach(cls IN LISTS ARG_CLASSES)
        add_test(NAME ${subsystem}.${cls} COMMAND ${target} ${cls})
        set_tests_properties(${subsystem}.${cls} PROPERTIES
            TIMEOUT 300
            ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QUIREPAD_SOURCE_DIR=${PROJECT_SOURCE_DIR};ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0;UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1;${ARG_ENVIRONMENT}")
    endforeach()
endfunction()
