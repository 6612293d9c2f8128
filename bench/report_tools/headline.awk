# Picks the headline runs out of the report's lines (see summary.awk): a few
# operators of every family, each at its largest size, with the baselines
# they are measured against. Reads the file twice:
#   awk -f headline.awk all.tsv all.tsv | awk -f summary.awk
BEGIN {
  FS = "\t"
  split("sgemm_nn Gemv_n<float> Gemv_t<float> Relu<float> Prelu<float> Add<float> Axpy<float> " \
        "Axpby<float> Sum<float> Dot<float> FillScalar<float> Exp<float> Geam_nn<float> " \
        "ProbByRow<float> SumByCol<float> AddVectorByRow<float> MaskAndScale<float> " \
        "SpmvCsr(banded) SpmvCsr(random) SpmvCcs(random) Dense2csr", list, " ")
  for (i in list) chosen[list[i]] = 1
}
{ split($2, p, "/") }
NR == FNR {
  if ((p[1] in chosen) && p[3] + 0 > largest[$1, p[1]]) largest[$1, p[1]] = p[3] + 0
  next
}
p[1] ~ /^(memcpy|read|peak)$/ || ((p[1] in chosen) && p[3] + 0 == largest[$1, p[1]])
