#include "tests/support/QuietSdk.h"

namespace {

class QuietSdk final : public Shim::Sdk {
  public:
    const char * errmsg( int ) noexcept override { return ""; }
    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override { return 1; }
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override { return 2; }
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override { return 3; }
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override { return lookup; }
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override { return 5; }
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override { return 6; }
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override { return 7; }
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override { return 8; }
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override { return 9; }
    int bcmlt_entry_allocate( int, const char *, std::uint32_t * handle ) noexcept override {
        *handle = 1;
        return 0;
    }
    int bcmlt_entry_attrib_set( std::uint32_t, std::uint32_t ) noexcept override { return 0; }
    int bcmlt_entry_commit( std::uint32_t, std::uint32_t opcode, std::uint32_t ) noexcept override {
        return opcode == lookup ? -1 : 0;
    }
    int bcmlt_entry_field_add( std::uint32_t, const char *, std::uint64_t ) noexcept override {
        return 0;
    }
    int bcmlt_entry_field_array_add( std::uint32_t, const char *, std::uint32_t,
                                     const std::uint64_t *, std::uint32_t ) noexcept override {
        return 0;
    }
    int bcmlt_entry_field_get( std::uint32_t, const char *,
                               std::uint64_t * value ) noexcept override {
        *value = 1;
        return 0;
    }
    int bcmlt_entry_field_symbol_add( std::uint32_t, const char *,
                                      const char * ) noexcept override {
        return 0;
    }
    int bcmlt_entry_free( std::uint32_t ) noexcept override { return 0; }
    int bcmlt_pt_entry_commit( std::uint32_t, std::uint32_t, std::uint32_t ) noexcept override {
        return 0;
    }
    std::uint32_t BCMLT_INVALID_HDL() noexcept override { return 0; }
    const char * ENABLEs() noexcept override { return "ENABLE"; }
    const char * NUM_LANESs() noexcept override { return "NUM_LANES"; }
    const char * PC_PHYS_PORT_IDs() noexcept override { return "PC_PHYS_PORT_ID"; }
    const char * PC_PORT_PHYS_MAPs() noexcept override { return "PC_PORT_PHYS_MAP"; }
    const char * PC_PORTs() noexcept override { return "PC_PORT"; }
    const char * PORT_IDs() noexcept override { return "PORT_ID"; }
    const char * SPEEDs() noexcept override { return "SPEED"; }
    void preCallHook() noexcept override {}
    void failureHook() noexcept override {}

  private:
    static constexpr std::uint32_t lookup = 4;
};

QuietSdk sdk;

} // namespace

Shim::Sdk & Support::quietSdk() { return sdk; }
