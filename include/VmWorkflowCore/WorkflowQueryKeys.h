// SPDX-License-Identifier: MIT
#pragma once

/// @file
/// The keys WorkflowManager::GetWorkflows understands, for callers that check a query or offer
/// its keys to a user. Keys match ignoring case. Header-only.

namespace Velmora::WorkflowCore::QueryKeys {

/// Filter only: whether the workflow's required products are all installed ("true"/"false").
inline constexpr char IsExecutable[] = "IsExecutable";
/// Filter and sort: templates or user workflows; templates sort first when ascending.
inline constexpr char IsTemplate[] = "IsTemplate";
/// Sort only: the workflow's name.
inline constexpr char Name[] = "Name";
/// Filter and sort: the workflow's primary product; a product id to filter by, the products'
/// display names to sort by.
inline constexpr char PrimaryProduct[] = "PrimaryProduct";
/// Filter and sort: the product the workflow runs in, as PrimaryProduct.
inline constexpr char TargetProduct[] = "TargetProduct";
/// Filter and sort: one of the products the workflow requires, as PrimaryProduct.
inline constexpr char RequiredProduct[] = "RequiredProduct";

/// Every key a filter item ("key=value") may name.
inline constexpr const char* FilterKeys[] = {IsExecutable, IsTemplate, PrimaryProduct, TargetProduct,
                                             RequiredProduct};
/// Every key a sort item ("key:0" ascending, "key:1" descending) may name.
inline constexpr const char* SortKeys[] = {IsTemplate, Name, PrimaryProduct, TargetProduct, RequiredProduct};

} // namespace Velmora::WorkflowCore::QueryKeys
