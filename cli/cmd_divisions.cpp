// The division commands: cost centres (cost-centre, cost-centres,
// cost-centre-add) and division types (division-types, division-type-add).
// A record's division code (positions 13-16) is a cost centre; these
// commands define what the codes mean before entries are posted with them.
#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/divisions.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

// The codes a cost centre may have: what the module reads as a cost centre
// (an int32), never negative (-1 is the module's "no cost centre").
constexpr int64_t kMaxCostCentre = 999999999;

void AddCostCentreLookup(CLI::App& app, Commands& commands) {
  struct Options {
    std::string code;
    bool active_only = false;
  };
  auto o = std::make_shared<Options>();
  CLI::App* sub = app.add_subcommand(
      "cost-centre",
      "The description of a cost centre (BuscaDescricaoCCusto); exit code 1 when there\n"
      "is none. Example: kvctb cost-centre 4 --active-only");
  sub->add_option("CODE", o->code, "Cost-centre code. Example: 4")->required();
  sub->add_flag("--active-only", o->active_only,
                "Ignore a cost centre marked inactive for queries.");
  commands.push_back({sub, [o](const RunContext& ctx) {
                        const int32_t code = ParseInt("CODE", o->code, 0, kMaxCostCentre);
                        Session session(ctx.options, ctx.trace);
                        const std::string description = session.Module().BuscaDescricaoCCusto(
                            ctx.options.empresa, ctx.options.revenda, code, o->active_only);
                        if (description.empty())
                          throw std::runtime_error(fmt::format("there is no{} cost centre {}",
                                                               o->active_only ? " active" : "",
                                                               code));
                        Output out;
                        out.single = true;
                        out.columns = {"cost_centre", "description"};
                        out.rows.push_back({int64_t{code}, description});
                        PrintOutput(ctx.options, out);
                        return kExitOk;
                      }});
}

void AddCostCentreList(CLI::App& app, Commands& commands) {
  auto active_only = std::make_shared<bool>(false);
  CLI::App* sub = app.add_subcommand(
      "cost-centres",
      "The cost centres of the company and dealership, in code order (none is not an\n"
      "error). Example: kvctb cost-centres --active-only");
  sub->add_flag("--active-only", *active_only,
                "Leave out the cost centres marked inactive for queries.");
  commands.push_back({sub, [active_only](const RunContext& ctx) {
                        Session session(ctx.options, ctx.trace);
                        Output out;
                        out.columns = {"cost_centre", "description", "inactive"};
                        for (const CostCentre& c : CostCentres(session))
                          if (!*active_only || !c.inactive)
                            out.rows.push_back({int64_t{c.code}, c.description, c.inactive});
                        if (out.rows.empty())
                          session.Progress().Status(
                              "no cost centres; define one with kvctb cost-centre-add CODE "
                              "DESCRIPTION");
                        PrintOutput(ctx.options, out);
                        return kExitOk;
                      }});
}

void AddCostCentreAdd(CLI::App& app, Commands& commands) {
  struct Options {
    std::string code, description;
    bool inactive = false;
  };
  auto o = std::make_shared<Options>();
  CLI::App* sub = app.add_subcommand(
      "cost-centre-add",
      "Define a cost centre: the division code of a record (positions 13-16) names\n"
      "one. An existing code is refused. Example: kvctb cost-centre-add 4 OFICINA");
  sub->add_option("CODE", o->code, "Cost-centre code, 0 to 999999999. Example: 4")->required();
  sub->add_option("DESCRIPTION", o->description,
                  "Its description, 1 to 60 bytes. Example: \"PECAS E ACESSORIOS\"")
      ->required();
  sub->add_flag("--inactive", o->inactive,
                "Mark it inactive for queries (cost-centre --active-only leaves it out).");
  commands.push_back(
      {sub, [o](const RunContext& ctx) {
         CostCentre centre;
         centre.code = ParseInt("CODE", o->code, 0, kMaxCostCentre);
         centre.description = CheckedText("DESCRIPTION", o->description, 60);
         if (centre.description.find_first_not_of(' ') == std::string::npos)
           throw UsageError("DESCRIPTION", "is empty");
         centre.inactive = o->inactive;
         Session session(ctx.options, ctx.trace);
         for (const CostCentre& c : CostCentres(session))
           if (c.code == centre.code)
             throw std::runtime_error(
                 fmt::format("cost centre {} already exists: {}", c.code, c.description));
         InTransaction(session, "the cost centre", [&] {
           InsertCostCentre(session, centre);
           return true;
         });
         Output out;
         out.single = true;
         out.columns = {"cost_centre", "description", "inactive"};
         out.rows.push_back({int64_t{centre.code}, centre.description, centre.inactive});
         PrintOutput(ctx.options, out);
         return kExitOk;
       }});
}

void AddDivisionTypeList(CLI::App& app, Commands& commands) {
  CLI::App* sub = app.add_subcommand(
      "division-types",
      "The division type of each division level of the company and dealership. An\n"
      "entry keeps its cost centre when its account's division level (NIVEL_DIVISAO\n"
      "of the chart) is 0, or when a level from 1 to it is of type C.\n"
      "Example: kvctb division-types");
  commands.push_back({sub, [](const RunContext& ctx) {
                        Session session(ctx.options, ctx.trace);
                        Output out;
                        out.columns = {"level", "type"};
                        for (const auto& [level, type] : DivisionTypes(session))
                          out.rows.push_back({int64_t{level}, type});
                        if (out.rows.empty())
                          session.Progress().Status(
                              "no division levels; define one with kvctb division-type-add "
                              "LEVEL TYPE");
                        PrintOutput(ctx.options, out);
                        return kExitOk;
                      }});
}

void AddDivisionTypeAdd(CLI::App& app, Commands& commands) {
  struct Options {
    std::string level, type;
  };
  auto o = std::make_shared<Options>();
  CLI::App* sub = app.add_subcommand(
      "division-type-add",
      "Give a division level its type: C makes it a cost-centre level, so that the\n"
      "entries of accounts of that division level or above keep the record's cost\n"
      "centre; the other capital letters are kept for the rest of the suite. A level\n"
      "that has a type is refused. Example: kvctb division-type-add 1 C");
  sub->add_option("LEVEL", o->level, "Division level, 1 to 99. Example: 1")->required();
  sub->add_option("TYPE", o->type, "One capital letter; C is the cost centre. Example: C")
      ->required();
  commands.push_back({sub, [o](const RunContext& ctx) {
                        const int32_t level = ParseInt("LEVEL", o->level, 1, 99);
                        const std::string type = CheckedText("TYPE", o->type);
                        if (type.size() != 1 || type[0] < 'A' || type[0] > 'Z')
                          throw UsageError(
                              "TYPE", fmt::format("'{}' is not one capital letter (C is the cost "
                                                  "centre)",
                                                  type));
                        Session session(ctx.options, ctx.trace);
                        const auto types = DivisionTypes(session);
                        if (const auto it = types.find(level); it != types.end())
                          throw std::runtime_error(fmt::format(
                              "division level {} already has type {}", level, it->second));
                        InTransaction(session, "the division type", [&] {
                          InsertDivisionType(session, level, type);
                          return true;
                        });
                        Output out;
                        out.single = true;
                        out.columns = {"level", "type"};
                        out.rows.push_back({int64_t{level}, type});
                        PrintOutput(ctx.options, out);
                        return kExitOk;
                      }});
}

}  // namespace

void AddDivisionCommands(CLI::App& app, Commands& commands) {
  AddCostCentreLookup(app, commands);
  AddCostCentreList(app, commands);
  AddCostCentreAdd(app, commands);
  AddDivisionTypeList(app, commands);
  AddDivisionTypeAdd(app, commands);
}

}  // namespace kvc::cli
