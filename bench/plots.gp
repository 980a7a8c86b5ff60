# gnuplot -e "results='FOLDER'; folder='FOLDER'" plots.gp
set terminal pngcairo size 900,480 font "sans,11" background "white"
set datafile separator "\t"
set grid ytics
set border 3

set output folder . "/performance-issue.png"
set title "One issuance, one name, RSA 2048, existing account"
set style data histogram
set style histogram clustered gap 1
set style fill solid 0.8 noborder
set ylabel "seconds"
set yrange [0:*]
set xtics nomirror
set ytics nomirror
set key top left
plot results . "/issue-1-rsa2048.tsv" using 3:xtic(1) title "CPU" linecolor "#2b6cb0", \
     "" using 4 title "wall" linecolor "#a0aec0"

reset
set datafile separator "\t"
set output folder . "/performance-archive.png"
set title "CPU time against the size of the archive, nothing due"
set logscale xy
set grid
set border 3
set xtics nomirror
set ytics nomirror
set xlabel "certificates"
set ylabel "CPU seconds"
set key top left
row(name) = sprintf("< grep -P '^%s\\t' %s/archive.tsv", name, results)
plot row("parse_loop") using 2:3 with linespoints title "plain C parse loop" linecolor "#a0aec0", \
     row("renew-all") using 2:3 with linespoints title "renew-all" linecolor "#2b6cb0", \
     row("list") using 2:3 with linespoints title "kova-archive list" linecolor "#2f855a", \
     row("check") using 2:3 with linespoints title "kova-archive check" linecolor "#c05621"
