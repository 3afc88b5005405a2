include $(sort $(wildcard $(BR2_EXTERNAL_KORLA_PATH)/package/*/*.mk))
