# SPDX-License-Identifier: Apache-2.0
#
# The bars of bench/report: the variable `bars` is their file, `count` how many
# there are. A bar goes from 1, where we and the peer are equal, to the ratio;
# the mark is the ratio's bound. A bound that is kept makes a bar green, one
# that is missed red.

set terminal svg size 1200, 90 + 22 * count font "sans-serif,11" \
    background "white" noenhanced
set datafile separator "\t"
set logscale x
set yrange [count + 0.6 : 0.4]
set xlabel "ours / peer, logarithmic"
set grid xtics
set ytics scale 0
set tics nomirror
unset key
set style fill solid 1.0 noborder
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor rgb "black"
smaller(a, b) = a < b ? a : b
larger(a, b) = a > b ? a : b

plot bars using 3:1:(smaller($3, 1)):(larger($3, 1)):($1 - 0.35):($1 + 0.35):5:ytic(2) \
         with boxxyerror linecolor rgb variable, \
     bars using 4:1 with points pointtype 2 pointsize 0.6 linecolor rgb "black"
