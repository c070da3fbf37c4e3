// SPDX-License-Identifier: Apache-2.0
//
// Path templates expanded by plugins. Pure.

#pragma once

#include <wx/string.h>

/// Expands path templates for the enabled plugins.
///
/// For each template, in order, and each plugin, in order, the result holds
/// the template with every "@" replaced by the plugin's name. Nothing is
/// trimmed and repetitions stay. An empty list of plugins leaves the paths as
/// they are.
///
/// \param paths    Templates separated by ";".
/// \param plugins  Names separated by ",".
///
/// \return the concrete paths separated by ";".
wxString ExpandPathPlugins(const wxString& paths, const wxString& plugins);
