import QtQuick
import Mirrowisp

// What a session waits for: a permission, a question or a plan, each answered from here.
Loader {
    id: card
    property string decisionID
    property string kind
    readonly property var actions: decisionID !== "" ? agents.card(decisionID) : null

    sourceComponent: !actions ? null
                   : kind === "question" ? questionCard
                   : kind === "plan" ? planCard : permissionCard

    Component {
        id: permissionCard
        PermissionCard { width: card.width; actions: card.actions }
    }
    Component {
        id: questionCard
        QuestionCard { width: card.width; actions: card.actions; questions: agents.questionCard(card.decisionID) }
    }
    Component {
        id: planCard
        PlanCard { width: card.width; actions: card.actions }
    }
}
