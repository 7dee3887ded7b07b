#pragma once

#include "platform/contract/ContractSuite.h"

#include <optional>

namespace quellora {

class WorkspaceContract : public ContractSuite
{
    Q_OBJECT
public:
    using ContractSuite::ContractSuite;

private:
    std::optional<OpenResult> resultOf(const QFuture<OpenResult> &opening);
    bool isOpened(const QFuture<OpenResult> &opening);
    std::optional<OpenFailure::Kind> failureOf(const QFuture<OpenResult> &opening);

private Q_SLOTS:
    void passesUrlUnchanged_data();
    void passesUrlUnchanged();
    void passesFileUnchanged();
    void doesNotBlock();
    void reportsFailure_data();
    void reportsFailure();
    void refusesInvalidUrl_data();
    void refusesInvalidUrl();
    void refusesMissingFile();
};

} // namespace quellora
