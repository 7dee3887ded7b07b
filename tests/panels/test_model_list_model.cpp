#include "panels/ModelListModel.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

class TestModelListModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void rows()
    {
        m_list.setOffer({{"f", "Fast", "Quick answers"}}, "f");
        QCOMPARE(m_list.rowCount(), 1);
        QCOMPARE(m_list.count(), 1);
        const QModelIndex row = m_list.index(0);
        QCOMPARE(row.data(ModelListModel::IdRole).toString(), "f");
        QCOMPARE(row.data(ModelListModel::DisplayNameRole).toString(), "Fast");
        QCOMPARE(row.data(ModelListModel::DescriptorRole).toString(), "Quick answers");
        QCOMPARE(m_list.idAt(0), "f");
        QCOMPARE(m_list.idAt(1), QString());
        QCOMPARE(m_list.rowOf("x"), -1);
    }

    void tellsWherePicturesGo()
    {
        const auto offer = [this](const QString &destination) {
            m_list.setOffer({{"f", "Fast", "Quick answers", destination}}, "f");
            const QModelIndex row = m_list.index(0);
            return row.data(ModelListModel::DestinationRole).toString() + '|' +
                   row.data(ModelListModel::PictureHintRole).toString();
        };
        QCOMPARE(offer({}), "|");
        QCOMPARE(offer("api.example.com"), "api.example.com|Pictures go to api.example.com");
        QCOMPARE(offer("127.0.0.1"), "this machine|Pictures stay on this machine");
        m_list.setBackend(QUrl("https://team.example.com"));
        QCOMPARE(offer("localhost"), "team.example.com|Pictures stay on team.example.com");
    }

    void changedDestinationIsShown()
    {
        m_list.setOffer({{"f", "Fast", "d", "a.org"}}, "f");
        m_list.setOffer({{"f", "Fast", "d", "b.org"}}, "f");
        QCOMPARE(m_list.index(0).data(ModelListModel::DestinationRole).toString(), "b.org");
    }

    void unchangedListDoesNotReset()
    {
        m_list.setOffer(m_offer, "f");
        QSignalSpy reset(&m_list, &QAbstractItemModel::modelReset);
        QSignalSpy selected(&m_list, &ModelListModel::selectedChanged);
        m_list.setOffer(m_offer, "f");
        QCOMPARE(reset.size() + selected.size(), 0);
        m_list.setOffer(m_offer, "b");
        QCOMPARE(reset.size(), 0);
        QCOMPARE(selected.size(), 1);
    }

    void userChoiceOverridesBackendDefault()
    {
        QCOMPARE(m_list.selectedId(), QString());
        QCOMPARE(m_list.selectedName(), "Model");
        m_list.setOffer(m_offer, "b");
        QCOMPARE(m_list.selectedId(), "b");
        QCOMPARE(m_list.selectedName(), "Balanced");
        QVERIFY(!m_defaults.stringValue("selectedModelId"));

        QSignalSpy selected(&m_list, &ModelListModel::selectedChanged);
        m_list.choose("f");
        QCOMPARE(m_defaults.stringValue("selectedModelId"), "f");
        QCOMPARE(m_list.selectedId(), "f");
        QCOMPARE(selected.size(), 1);
        m_list.choose("unknown");
        QCOMPARE(m_defaults.stringValue("selectedModelId"), "f");
        // Changed in the settings by other code.
        m_defaults.setString("selectedModelId", "b");
        QCOMPARE(m_list.selectedName(), "Balanced");
    }

    void choosingBackendDefaultStoresIt()
    {
        m_list.setOffer(m_offer, "b");
        m_list.choose("b");
        QCOMPARE(m_defaults.stringValue("selectedModelId"), "b");
        m_list.setOffer(m_offer, "f");
        QCOMPARE(m_list.selectedId(), "b");
    }

    void unavailableChoiceStaysStored()
    {
        m_settings.setSelectedModelId("gone");
        m_list.setOffer(m_offer, "b");
        QCOMPARE(m_list.selectedId(), "b");
        QCOMPARE(m_defaults.stringValue("selectedModelId"), "gone");
        m_list.setOffer(m_offer, "neither");
        QCOMPARE(m_list.selectedId(), QString());
        QCOMPARE(m_list.selectedName(), "Model");
        m_list.setOffer({{"gone", "Back again", ""}}, "b");
        QCOMPARE(m_list.selectedName(), "Back again");
        m_list.setOffer({}, "b");
        QCOMPARE(m_list.selectedName(), "Model");
    }

    void answererIsNamedAfterModel()
    {
        QCOMPARE(m_list.answererName(), "Claude");
        m_list.setOffer(m_offer, "b");
        QCOMPARE(m_list.answererName(), "Balanced");
    }

    void init()
    {
        m_defaults.remove("selectedModelId");
        m_list.setOffer({}, {});
    }

private:
    const QList<ModelOption> m_offer{{"f", "Fast", ""}, {"b", "Balanced", ""}};
    JsonUserDefaults m_defaults;
    Settings m_settings{m_defaults};
    ModelListModel m_list{m_settings};
};

QUELLORA_TEST(QGuiApplication, TestModelListModel)
#include "test_model_list_model.moc"
