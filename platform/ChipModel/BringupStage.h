#pragma once

#include <ChipModel/ChipInfo.h>

// The agent's bring-up stages. A chip passes numbered stages while it comes up; recipes ask whether
// a chip is still blocked at one.

namespace CairnCentral {

/// A stage by its number.
enum class BringupStage : std::uint32_t {};

/// Whether the chip is blocked at the stage.
bool isBlocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept;

/// Whether the chip is past the stage. Asked of the service by itself, not derived from
/// isBlocked().
bool isUnblocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept;

/// Who answers the two questions. Called on the asking thread, with the activity lock held.
class BringupStageService {
  public:
    virtual bool isBlocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept = 0;
    virtual bool isUnblocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept = 0;

  protected:
    ~BringupStageService() = default;
};

/// Makes `service` answer from now on; null brings back the table of setStageBlocked(). The object
/// stays the host's. Returns the one that was set before, or null.
BringupStageService * setBringupStageService( BringupStageService * service ) noexcept;

/// The start service is a table: a chip is blocked at the stages set here and past all others.
void setStageBlocked( const ChipInfo & chipInfo, BringupStage stage, bool blocked );

/// Empties the table.
void clearBlockedStages();

} // namespace CairnCentral
