# Fleetlog and Twinlog, included by platform/CMakeLists.txt.
target_sources( cairn_platform
    PRIVATE
        Fleetlog/internal/Clock.cpp
        Fleetlog/MsgDesc.cpp
        Fleetlog/internal/NewFile.cpp
        Fleetlog/internal/OldFiles.cpp
        Fleetlog/internal/Registry.cpp
        Fleetlog/RingBuf.cpp
        Fleetlog/TraceFile.cpp
        Fleetlog/TraceHandle.cpp
        Twinlog/FleetlogConverter.cpp
    PUBLIC
        FILE_SET HEADERS FILES
            Fleetlog/Format.h
            Fleetlog/MsgDesc.h
            Fleetlog/RingBuf.h
            Fleetlog/TraceFile.h
            Fleetlog/TraceHandle.h
            Twinlog/FleetlogConverter.h
)
