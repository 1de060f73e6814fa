#include "viewer_point_budget.h"

ViewerPointBudget::ViewerPointBudget(Vorna::Orvane::IncrePointGeometryApple* cloud, QObject* parent)
    : QObject(parent), m_cloud(cloud)
{
    // The counts change on the render thread; the status line follows a few times a second.
    m_poll.setInterval(200);
    connect(&m_poll, &QTimer::timeout, this, [this] {
        QString now = text();
        if (now != m_text) {
            m_text = now;
            emit textChanged();
        }
    });
    m_poll.start();
}

bool ViewerPointBudget::apply(const QString& value)
{
    bool ok = false;
    const uint points = value.toUInt(&ok);
    if (!ok || !m_cloud)
        return false;
    m_cloud->setPointBudget(points);
    return true;
}

QString ViewerPointBudget::text() const
{
    if (!m_cloud || m_cloud->pointBudget() == 0)
        return QString();
    return QString("drawn %1 / %2 points (budget %3)")
        .arg(m_cloud->drawnPointCount())
        .arg(m_cloud->wholeSize())
        .arg(m_cloud->pointBudget());
}
