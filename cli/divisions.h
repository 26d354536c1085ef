// The cost centres and division types of a company and dealership, as kvctb
// defines and lists them, and what the posting's division split does with a
// record's division code: the code is a cost centre, which an entry keeps
// only when its account's division settings allow it.
#ifndef KVC_CLI_DIVISIONS_H_
#define KVC_CLI_DIVISIONS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cli/chart.h"
#include "cli/session.h"

namespace kvc::cli {

// The division type that makes a division level a cost-centre level; the
// division split looks for no other.
inline constexpr char kCostCentreType[] = "C";

struct CostCentre {
  int32_t code = 0;
  std::string description;
  bool inactive = false;  // left out of queries that ask for active ones
};

// The cost centres, in code order.
std::vector<CostCentre> CostCentres(Session& session);
// Writes one cost centre (in the caller's transaction, if any).
void InsertCostCentre(Session& session, const CostCentre& centre);

// The division type of each division level, by level.
std::map<int32_t, std::string> DivisionTypes(Session& session);
// Writes the type of one division level (in the caller's transaction, if
// any).
void InsertDivisionType(Session& session, int32_t level, const std::string& type);

// What the division split does with the cost centre of an entry of an
// account, by the same two rules, in its order: an account whose division
// level is above 0 needs a level of type C at or below it, and a
// balance-sheet account (group 1 or 2) drops it unless marked always divided
// (S). Each reason is "" when its rule keeps the cost centre.
struct CostCentreFate {
  std::string no_cost_centre_level;  // the account's division levels have none of type C
  std::string balance_sheet;         // a balance-sheet account not always divided
  bool Kept() const { return no_cost_centre_level.empty() && balance_sheet.empty(); }
  // The reasons, joined.
  std::string Why() const;
};
CostCentreFate FateOfCostCentre(const ChartLine& account,
                                const std::map<int32_t, std::string>& types);

}  // namespace kvc::cli

#endif  // KVC_CLI_DIVISIONS_H_
