#pragma once

#include <Shim/Sdk.h>

#include <pybind11/pybind11.h>

#include <memory>
#include <set>
#include <string>

// SDKs as Python objects. `cairn_lt.Sdk` is the base of all: of the simulated chip and the
// interposers, which are C++, and of classes written in Python, which are ScriptedSdk here.

namespace Python {

/// What stands behind a Python object of class Sdk. The object owns it.
class SdkObject {
  public:
    SdkObject() = default;
    virtual ~SdkObject() = default;
    SdkObject( const SdkObject & ) = delete;
    SdkObject & operator=( const SdkObject & ) = delete;

    virtual Shim::Sdk & sdk() = 0;
    /// Its operations are functions in Python.
    virtual bool isScripted() const { return false; }
};

/// An SDK written in Python: asks the methods of its object, with the interpreter's lock held.
/// What they raise is reported and ends the process, as an error thrown in a shim must.
class ScriptedSdk final : public SdkObject, public Shim::Sdk {
  public:
    Shim::Sdk & sdk() override { return *this; }
    bool isScripted() const override { return true; }

    const char * errmsg( int rc ) noexcept override;
    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override;
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override;
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override;
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override;
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override;
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override;
    int bcmlt_entry_allocate( int unit, const char * table,
                              std::uint32_t * handle ) noexcept override;
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept override;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override;
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept override;
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept override;
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override;
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept override;
    std::uint32_t BCMLT_INVALID_HDL() noexcept override;
    const char * ENABLEs() noexcept override;
    const char * NUM_LANESs() noexcept override;
    const char * PC_PHYS_PORT_IDs() noexcept override;
    const char * PC_PORT_PHYS_MAPs() noexcept override;
    const char * PC_PORTs() noexcept override;
    const char * PORT_IDs() noexcept override;
    const char * SPEEDs() noexcept override;
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  private:
    template <class Use, class... Arguments>
    void ask( const char * method, const Use & use, const Arguments &... arguments ) noexcept;
    template <class Result, class... Arguments>
    Result get( const char * method, const Arguments &... arguments ) noexcept;
    template <class... Arguments>
    const char * text( const char * method, const Arguments &... arguments ) noexcept;

    // Texts that were handed out: their users keep the pointer.
    std::set<std::string> texts_;
};

/// Makes the SDK of `object`, None for none, the one that recipes use, and keeps the object. Returns
/// the object in force before. Throws std::runtime_error while a recipe runs.
pybind11::object install( pybind11::object object );

/// Installs the same object again, in a child of the process that is to be watched from now on: what
/// stands in front of the object has changed. A recipe that was running will not go on there.
void installInChild();

/// Whether a thread other than the calling one runs a recipe.
bool recipesRunElsewhere();

/// While it lives, a recipe runs, and install() refuses.
class RecipeScope {
  public:
    RecipeScope();
    ~RecipeScope();
    RecipeScope( const RecipeScope & ) = delete;
    RecipeScope & operator=( const RecipeScope & ) = delete;
};

} // namespace Python
