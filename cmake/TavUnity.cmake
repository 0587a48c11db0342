# For builds that compile several sources at once (CMAKE_UNITY_BUILD, as the sanitizers' presets do: a third of the
# time). The names in a source's unnamed namespace are then those of all that are compiled with it. These sources have
# names there that another one has, too, and are compiled by themselves. A new one of the kind does not compile
# ("redefinition"), and belongs here.
get_property(rooms DIRECTORY ${PROJECT_SOURCE_DIR} PROPERTY SUBDIRECTORIES)
foreach(source IN ITEMS
    GpsDevice/GpsModule.cpp
    base/Tavbase/Util/Tick.cpp
    examples/unit-monitor/Alerts.cpp
    examples/unit-monitor/EventWatch.cpp
    examples/unit-monitor/GpsWatch.cpp
    examples/unit-monitor/KeyWatch.cpp
    examples/unit-monitor/Monitor.cpp
    tests/Gpio/GpioOutputTest.cpp
    tests/Modem/RepliesTest.cpp
    tests/base/Tavbase/Util/NewDateTest.cpp
    tests/base/Tavbase/Util/TemperatureMonitorTest.cpp
    tests/base/Tavbase/Util/TickTest.cpp
    tests/base/Tavsystem/FileUtils/TavdirTest.cpp
    tests/base/Tavsystem/SysUtil/ExecSystemCmdThroughPipeTest.cpp
    tests/base/Tavsystem/System/UnmountAllTest.cpp
    tests/virtual-unit/peripherals/KeyReaderTest.cpp
    virtual-unit/peripherals/CellularModule.cpp
    virtual-unit/peripherals/CellularState.cpp
    virtual-unit/peripherals/KeyReader.cpp
    virtual-unit/run/Supervisor.cpp
    virtual-unit/script/Step.cpp
    virtual-unit/unit/Unit.cpp
    virtual-unit/unit/UnitOptions.cpp)
    string(REGEX MATCH "^[^/]+" room ${source})
    if(NOT "${PROJECT_SOURCE_DIR}/${room}" IN_LIST rooms)
        continue() # it is not built
    endif()
    # The property holds for the targets of a directory.
    cmake_path(GET source PARENT_PATH directory)
    while(NOT EXISTS ${PROJECT_SOURCE_DIR}/${directory}/CMakeLists.txt)
        cmake_path(GET directory PARENT_PATH directory)
    endwhile()
    set_source_files_properties(${PROJECT_SOURCE_DIR}/${source}
        DIRECTORY ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/base ${PROJECT_SOURCE_DIR}/${directory}
        PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endforeach()
