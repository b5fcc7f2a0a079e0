#pragma once

#include "tools/model/Model.h"
#include "tools/run/Observation.h"

#include <ChipModel/BringupStage.h>
#include <ChipModel/ChipProfile.h>

#include <map>
#include <string>

// What a recipe asks of the chip model.

namespace Tool {

/// Answers as the model in force does, and notes each question about bring-up stages, profiles and
/// their features. Answers for the whole process while it lives; one at a time.
class ModelObserver final : public CairnCentral::BringupStageService,
                            public CairnProfile::ChipProfileService {
  public:
    /// `model` is the one in force (applyModel).
    ModelObserver( const Model & model, Observer & observer );
    ~ModelObserver();
    ModelObserver( const ModelObserver & ) = delete;
    ModelObserver & operator=( const ModelObserver & ) = delete;

    bool isBlocked( const CairnCentral::ChipInfo & chip,
                    CairnCentral::BringupStage stage ) noexcept override;
    bool isUnblocked( const CairnCentral::ChipInfo & chip,
                      CairnCentral::BringupStage stage ) noexcept override;
    Nacre::Ptr<Asic::ChipProfile>
    activeChipProfile( const CairnCentral::ChipInfo & chip ) noexcept override;

  private:
    bool isBlockedInModel( const CairnCentral::ChipInfo & chip,
                           CairnCentral::BringupStage stage ) const;

    const Model & model_;
    Observer & observer_;
    std::map<std::string, Nacre::Ptr<Asic::ChipProfile>> profiles_; ///< by the name of the chip
};

} // namespace Tool
