#pragma once
// The host class names under which the library shows its objects.

namespace dependency::services {

inline constexpr char const* AttributeAnalyzerClassName = "dependencies.internal.attribute.AttributeAnalyzer";
inline constexpr char const* AttributeIdentityClassName = "dependencies.internal.attribute.AttributeIdentity";
inline constexpr char const* AttributeClassName = "dependencies.internal.attribute.Attribute";
inline constexpr char const* GraphAttributesClassName = "dependencies.internal.attribute.GraphAttributes";
inline constexpr char const* SeverityClassName = "dependencies.internal.attribute.Severity";
// The marker superclass that lets objects of different subclasses share one array.
inline constexpr char const* HeterogeneousClassName = "qorvex.mixin.Heterogeneous";

}  // namespace dependency::services
