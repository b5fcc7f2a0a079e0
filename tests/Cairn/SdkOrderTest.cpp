#include <Shim/Sdk.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>

// The order of the shim's virtual table is binary interface: hosts are built against it.

namespace {

/// Where a virtual operation stands in the table, from 1. The C++ ABI keeps its byte offset in a pointer
/// to member, with a mark that it is one: 1 is added; on ARM, where functions may lie at odd
/// addresses, the mark is elsewhere.
template <class Operation>
size_t place( Operation operation ) {
    struct MemberPointer {
        size_t offset;
        ptrdiff_t adjustment;
    };
#if defined( __aarch64__ )
    constexpr size_t mark = 0;
#else
    constexpr size_t mark = 1;
#endif
    return ( std::bit_cast<MemberPointer>( operation ).offset - mark ) / sizeof( void * ) + 1;
}

TEST( SdkOrderTest, OperationsStandInTheDocumentedOrder ) {
    using Shim::Sdk;
    EXPECT_EQ( place( &Sdk::errmsg ), 1u );
    EXPECT_EQ( place( &Sdk::BCMLT_ENT_ATTR_GET_FROM_HW ), 2u );
    EXPECT_EQ( place( &Sdk::BCMLT_OPCODE_DELETE ), 3u );
    EXPECT_EQ( place( &Sdk::BCMLT_OPCODE_INSERT ), 4u );
    EXPECT_EQ( place( &Sdk::BCMLT_OPCODE_LOOKUP ), 5u );
    EXPECT_EQ( place( &Sdk::BCMLT_OPCODE_UPDATE ), 6u );
    EXPECT_EQ( place( &Sdk::BCMLT_PRIORITY_NORMAL ), 7u );
    EXPECT_EQ( place( &Sdk::BCMLT_PT_OPCODE_GET ), 8u );
    EXPECT_EQ( place( &Sdk::BCMLT_PT_OPCODE_MODIFY ), 9u );
    EXPECT_EQ( place( &Sdk::BCMLT_PT_OPCODE_SET ), 10u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_allocate ), 11u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_attrib_set ), 12u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_commit ), 13u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_field_add ), 14u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_field_array_add ), 15u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_field_get ), 16u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_field_symbol_add ), 17u );
    EXPECT_EQ( place( &Sdk::bcmlt_entry_free ), 18u );
    EXPECT_EQ( place( &Sdk::bcmlt_pt_entry_commit ), 19u );
    EXPECT_EQ( place( &Sdk::BCMLT_INVALID_HDL ), 20u );
    EXPECT_EQ( place( &Sdk::ENABLEs ), 21u );
    EXPECT_EQ( place( &Sdk::NUM_LANESs ), 22u );
    EXPECT_EQ( place( &Sdk::PC_PHYS_PORT_IDs ), 23u );
    EXPECT_EQ( place( &Sdk::PC_PORT_PHYS_MAPs ), 24u );
    EXPECT_EQ( place( &Sdk::PC_PORTs ), 25u );
    EXPECT_EQ( place( &Sdk::PORT_IDs ), 26u );
    EXPECT_EQ( place( &Sdk::SPEEDs ), 27u );
    EXPECT_EQ( place( &Sdk::preCallHook ), 28u );
    EXPECT_EQ( place( &Sdk::failureHook ), 29u );
}

} // namespace
