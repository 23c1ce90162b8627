# Draws `rows`: a text and the ratio of the times, library to peer.
set terminal svg size 900,480 font "sans-serif,12" background "white"
set style data boxes
set style fill solid 0.8 noborder
set boxwidth 0.7
set logscale y 2
set ylabel "time, the peer's = 1 (lower is better)"
set xtics rotate by 40 right nomirror out
set ytics nomirror
set grid ytics
set key off
set arrow from graph 0, first 1 to graph 1, first 1 nohead lc rgb "#333333"
set yrange [0.0625:8]
set bmargin 10
set lmargin 16
plot rows using 0:2:xtic(1) lc rgb "#3465a4"
