import QtQuick
import Mirrowisp

// What a session waits for: a permission, a question or a plan, each answered from here.
Loader {
    id: card
    required property AgentsViewModel agents
    required property IslandShell shell
    property string decisionID
    property string kind
    readonly property var actions: decisionID !== "" ? agents.card(decisionID) : null

    sourceComponent: !actions ? null
                   : kind === "question" ? questionCard
                   : kind === "plan" ? planCard : permissionCard

    // qmllint disable unqualified
    Component {
        id: permissionCard
        PermissionCard { width: card.width; actions: card.actions }
    }
    Component {
        id: questionCard
        QuestionCard {
            width: card.width
            shell: card.shell
            actions: card.actions
            questions: card.agents.questionCard(card.decisionID)
        }
    }
    Component {
        id: planCard
        PlanCard { width: card.width; shell: card.shell; actions: card.actions }
    }
    // qmllint enable unqualified
}
