// The bus on its own: the button state machine, the one-source rules, cuts, the Preview and
// Program lists and grid placement, over buttons of real setup objects.
#include "tests/studio/LVStudioTestSupport.h"

#include <QSignalSpy>

namespace {

struct Cell { const char* name; bool source; int row, col; uint32_t state; };

// Row 0: sources A, B, C; row 1: effect-only E and F.
const std::vector<Cell> kGrid = {
    {"A", true, 0, 0, 0}, {"B", true, 0, 1, 0}, {"C", true, 0, 2, 0}, {"E", false, 1, 0, 0}, {"F", false, 1, 1, 0},
};

class LVMEBusTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ensureTestApplication(); }

    // States are given before the buttons join, so the rules do not rewrite them.
    void build(const std::map<std::string, uint32_t>& states, const std::vector<Cell>& grid = kGrid)
    {
        for (const Cell& cell : grid) {
            auto button = std::make_shared<LVStudioButton>(
                makeLooseSetup(dir, QString::fromLatin1(cell.name), cell.source), nullptr);
            button->setRow(cell.row, cell.col);
            const auto it = states.find(cell.name);
            button->setState(it == states.end() ? cell.state : it->second);
            buttons[cell.name] = button;
            bus.addButton(button, false);
        }
    }

    void clear()
    {
        for (const auto& [name, button] : buttons) bus.removeButton(button);
        buttons.clear();
    }

    std::map<std::string, uint32_t> states() const
    {
        std::map<std::string, uint32_t> result;
        for (const auto& [name, button] : buttons)
            if (button->state() != 0) result[name] = button->state();
        return result;
    }

    static QStringList names(const std::vector<LVStudioButtonRef>& list)
    {
        QStringList result;
        for (const auto& button : list) result.append(button->name());
        return result;
    }

    QTemporaryDir dir;
    LVMEBus bus{nullptr, nullptr};
    std::map<std::string, LVStudioButtonRef> buttons;
};

using States = std::map<std::string, uint32_t>;

TEST_F(LVMEBusTest, ButtonActionsFollowTheStateMachine)
{
    enum Action { Click, OptionClick, SelectForAir, SelectForOffAir, PunchToAir, PunchToOffAir };
    // For each action, the state reached from states 0, 1, 2, 3, 4.
    const struct { Action action; std::array<uint32_t, 5> from; } cases[] = {
        {Click, {4, 1, 3, 2, 0}},          {OptionClick, {3, 1, 0, 0, 3}},  {SelectForAir, {4, 1, 2, 3, 4}},
        {SelectForOffAir, {0, 1, 2, 2, 0}}, {PunchToAir, {3, 3, 3, 3, 3}}, {PunchToOffAir, {0, 0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        for (uint32_t start = 0; start < 5; ++start) {
            // An effect-only button on a bus of its own: no one-source rule applies.
            LVStudioButton button(makeLooseSetup(dir, QStringLiteral("E"), false), nullptr);
            button.setState(start);
            switch (c.action) {
            case Click: button.doNormalToggle(); break;
            case OptionClick: button.doOptionToggle(); break;
            case SelectForAir: button.selectForAir(); break;
            case SelectForOffAir: button.selectForOffAir(); break;
            case PunchToAir: button.punchToAir(); break;
            case PunchToOffAir: button.punchToOffAir(); break;
            }
            EXPECT_EQ(button.state(), c.from[start]) << "action " << c.action << " from state " << start;
        }
    }
}

TEST_F(LVMEBusTest, OneSourcePerBus)
{
    enum Action { Click, OptionClick };
    const struct { const char* why; States before; const char* button; Action action; States after; } cases[] = {
        {"a second source into Preview returns the first to idle", {{"A", 4}}, "B", Click, {{"B", 4}}},
        {"a source into Preview turns the on-air one amber", {{"A", 3}}, "B", Click, {{"A", 2}, {"B", 4}}},
        {"a source straight on air turns the on-air one amber", {{"A", 3}}, "B", OptionClick, {{"A", 2}, {"B", 3}}},
        {"the first of row 0 in state 3 or 4 is the one that changes", {{"A", 3}, {"B", 4}}, "C", Click,
         {{"A", 2}, {"B", 4}, {"C", 4}}},
        {"effect-only buttons leave the sources alone", {{"A", 3}, {"B", 4}}, "E", Click,
         {{"A", 3}, {"B", 4}, {"E", 4}}},
        {"a transitioning source ignores clicks", {{"A", 1}, {"B", 3}}, "A", Click, {{"A", 1}, {"B", 3}}},
        {"an amber source clicked goes back on air", {{"A", 2}, {"B", 4}}, "A", Click, {{"A", 3}, {"B", 4}}},
        {"an on-air source clicked turns amber", {{"A", 3}}, "A", Click, {{"A", 2}}},
        {"an Option-click takes an on-air source off at once", {{"A", 3}, {"E", 3}}, "A", OptionClick, {{"E", 3}}},
    };
    for (const auto& c : cases) {
        build(c.before);
        LVStudioButton& target = *buttons[c.button];
        c.action == Click ? target.doNormalToggle() : target.doOptionToggle();
        EXPECT_EQ(states(), c.after) << c.why;
        clear();
    }
}

TEST_F(LVMEBusTest, CutsAndTransitionStarts)
{
    const struct { const char* why; States before; bool swap; States after; } cases[] = {
        {"Preview goes on air, amber leaves", {{"A", 2}, {"B", 4}, {"E", 3}, {"F", 4}}, false,
         {{"B", 3}, {"E", 3}, {"F", 3}}},
        {"swap exchanges Preview and Program", {{"A", 2}, {"B", 4}, {"E", 3}}, true, {{"A", 4}, {"B", 2}, {"E", 3}}},
        {"a running transition's buttons go on air", {{"A", 2}, {"B", 1}}, false, {{"B", 3}}},
        {"nothing in Preview and nothing amber changes nothing", {{"A", 3}, {"E", 3}}, false, {{"A", 3}, {"E", 3}}},
        {"amber alone leaves", {{"A", 2}}, false, {}},
    };
    for (const auto& c : cases) {
        build(c.before);
        bus.executeCut(c.swap);
        EXPECT_EQ(states(), c.after) << c.why;
        clear();
    }

    build({{"A", 3}, {"B", 4}, {"E", 4}});
    bus.startTransition();
    EXPECT_EQ(states(), (States{{"A", 3}, {"B", 1}, {"E", 1}}));
}

TEST_F(LVMEBusTest, PreviewAndProgramLists)
{
    const struct { const char* why; States states; QStringList preview, program; } cases[] = {
        {"nothing wants Preview: empty though on air", {{"A", 3}, {"E", 3}}, {}, {"A", "E"}},
        {"the on-air source is previewed with a pending effect", {{"A", 3}, {"E", 4}}, {"A", "E"}, {"A"}},
        {"the pending source replaces the on-air one", {{"A", 2}, {"B", 4}, {"E", 3}}, {"B", "E"}, {"A", "E"}},
        {"a transitioning source is Preview", {{"A", 3}, {"C", 1}, {"F", 1}}, {"C", "F"}, {"A"}},
        {"amber effects are on Program only", {{"B", 4}, {"E", 2}}, {"B"}, {"E"}},
        {"row order, then column order", {{"F", 4}, {"E", 4}, {"C", 3}}, {"C", "E", "F"}, {"C"}},
        {"all idle", {}, {}, {}},
    };
    for (const auto& c : cases) {
        build(c.states);
        EXPECT_EQ(names(bus.previewButtons()), c.preview) << c.why;
        EXPECT_EQ(names(bus.programButtons()), c.program) << c.why;
        EXPECT_EQ(bus.hasPreviewSetups(), !c.preview.isEmpty()) << c.why;
        clear();
    }
}

TEST_F(LVMEBusTest, ListsAreRecollectedOncePerBurst)
{
    build({});
    QSignalSpy spy(&bus, &LVMEBus::hasPreviewSetupsChanged);
    KDDelayedDispatcher::flush();
    spy.clear();
    buttons["A"]->doNormalToggle();
    buttons["E"]->doNormalToggle();
    buttons["F"]->doNormalToggle();
    EXPECT_TRUE(bus.isDirty());
    EXPECT_EQ(names(bus.previewButtons()), (QStringList{"A", "E", "F"}));
    EXPECT_FALSE(bus.isDirty());
    KDDelayedDispatcher::flush();
    EXPECT_EQ(spy.count(), 1);
}

TEST_F(LVMEBusTest, PlacementKeepsSourcesInRowZeroAndCellsFree)
{
    const struct { const char* why; bool source; int row, col, placedRow, placedCol; } cases[] = {
        {"an effect-only button hinted into row 0 goes to row 1", false, 0, 0, 1, 2},
        {"a source hinted below row 0 comes up", true, 3, 5, 0, 5},
        {"a source on a taken cell takes the first free one", true, 0, 1, 0, 3},
        {"a free cell in a missing row is kept", false, 4, 2, 4, 2},
        {"an effect-only button on a taken cell", false, 1, 0, 1, 2},
        {"a damaged hint outside the grid", false, -2, -3, 1, 2},
        {"a negative column in a missing row", false, 5, -1, 5, 0},
    };
    for (const auto& c : cases) {
        build({});
        auto button = std::make_shared<LVStudioButton>(makeLooseSetup(dir, QStringLiteral("New"), c.source), nullptr);
        button->setRow(c.row, c.col);
        bus.addButton(button, false);
        EXPECT_EQ(std::make_pair(button->row(), button->col()), std::make_pair(c.placedRow, c.placedCol)) << c.why;
        bus.removeButton(button);
        clear();
    }
}

TEST_F(LVMEBusTest, AMoveOntoATakenCellDropsOutOfBothBusesUntilMovedAgain)
{
    build({{"B", 3}});
    EXPECT_EQ(names(bus.programButtons()), (QStringList{"B"}));
    buttons["B"]->setRow(0, 0); // A's cell
    EXPECT_TRUE(names(bus.programButtons()).isEmpty());
    EXPECT_EQ(buttons["B"]->bus(), &bus);
    buttons["B"]->setRow(0, 4);
    EXPECT_EQ(names(bus.programButtons()), (QStringList{"B"}));
    ASSERT_EQ(bus.rows().size(), 2u);
    EXPECT_EQ(bus.rows()[0].back(), buttons["B"]);
}

TEST_F(LVMEBusTest, GainingOrLosingTheSourceMovesTheButton)
{
    build({});
    LVStudioButton& e = *buttons["E"];
    e.setup()->setEffects({makeTestEffect(QStringLiteral("RedSource"), nullptr)});
    EXPECT_EQ(std::make_pair(e.row(), e.col()), std::make_pair(0, 3));
    LVStudioButton& a = *buttons["A"];
    a.setup()->setEffects({makeTestEffect(QStringLiteral("Marker"), nullptr)});
    EXPECT_EQ(std::make_pair(a.row(), a.col()), std::make_pair(1, 0)) << "E's old cell is free again";
}

TEST_F(LVMEBusTest, ADetachedButtonNoLongerDisturbsTheBus)
{
    build({{"A", 3}});
    const LVStudioButtonRef a = buttons["A"];
    bus.removeButton(a);
    EXPECT_EQ(a->bus(), nullptr);
    a->doNormalToggle();
    a->setRow(0, 1);
    EXPECT_TRUE(names(bus.programButtons()).isEmpty());
    EXPECT_EQ(buttons["B"]->state(), 0u);
    EXPECT_EQ(bus.buttons().size(), 4u);
}

TEST_F(LVMEBusTest, ButtonEffectsKeepTheirSourceFirst)
{
    LVStudioButton button(makeLooseSetup(dir, QStringLiteral("A"), true, 2), nullptr);
    const auto& effects = button.effects();
    const LVEffectRef blue = makeTestEffect(QStringLiteral("BlueSource"), nullptr);
    const LVEffectRef marker = makeTestEffect(QStringLiteral("Marker"), nullptr);
    button.addEffect(blue, 2);
    EXPECT_EQ(effects.front(), blue) << "a source replaces the source";
    EXPECT_EQ(effects.size(), 3u);
    button.addEffect(marker, 1);
    EXPECT_EQ(effects[1], marker);
    button.removeEffect(blue);
    const LVEffectRef red = makeTestEffect(QStringLiteral("RedSource"), nullptr);
    button.addEffect(red, -1);
    EXPECT_EQ(effects.front(), red) << "a source goes first whatever the index";
    EXPECT_EQ(effects.size(), 4u);
    EXPECT_EQ(LVStudioButton::uidFromDragData(button.dragData()), button.uid());
    EXPECT_TRUE(LVStudioButton::uidFromDragData("not json").isEmpty());
}

} // namespace
