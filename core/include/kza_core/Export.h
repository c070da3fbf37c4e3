// SPDX-License-Identifier: Apache-2.0
//
// Marks what libkza_core exports; everything else stays hidden.

#pragma once

#define KZA_API __attribute__((visibility("default")))
