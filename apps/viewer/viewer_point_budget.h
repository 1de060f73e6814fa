#pragma once

#include "incre_point_geomtry_apple.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <osg/ref_ptr>

// The live cloud's point budget in the viewer: set from --point-budget, and the points the
// last frame drew out of the whole cloud, for the status line.
class ViewerPointBudget : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text NOTIFY textChanged)
public:
    explicit ViewerPointBudget(Vorna::Orvane::IncrePointGeometryApple* cloud,
                               QObject* parent = nullptr);

    // The option's value: a count of points, 0 for none. False, and nothing set, when it is not
    // a count.
    bool apply(const QString& value);
    // "drawn D / T points (budget B)", or empty without a budget.
    QString text() const;

signals:
    void textChanged();

private:
    osg::ref_ptr<Vorna::Orvane::IncrePointGeometryApple> m_cloud;
    QTimer m_poll;
    QString m_text;
};
